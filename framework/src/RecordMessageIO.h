#pragma once
// Reading and writing optional properties in a message node. Internal to the
// framework library. Writers write only specified properties; readers leave a
// property unspecified when its key is absent and fail (-1) when the element
// is there but unreadable.
#include "KQC/EnvConfig.h"
#include "KQC/Message.h"

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace KQC {
namespace RecordMessageIO {

void writeString(KQCMessageIterator& it, int tag, const KQCOptionalProperty<std::string>& value);
int readString(KQCMessageIterator& it, int tag, KQCOptionalProperty<std::string>& value);

void writeInt(KQCMessageIterator& it, int tag, const KQCOptionalProperty<int>& value);
int readInt(KQCMessageIterator& it, int tag, KQCOptionalProperty<int>& value);

void writeBool(KQCMessageIterator& it, int tag, const KQCOptionalProperty<bool>& value);
int readBool(KQCMessageIterator& it, int tag, KQCOptionalProperty<bool>& value);

// Lists travel as a child node holding one "item" value per entry, so that a
// specified empty list stays apart from an unspecified one.
void writeStrings(KQCMessageIterator& it, int tag, const KQCOptionalProperty<KQCStringList>& value);
int readStrings(KQCMessageIterator& it, int tag, KQCOptionalProperty<KQCStringList>& value);
void writeStringSet(KQCMessageIterator& it, int tag, const KQCOptionalProperty<KQCStringSet>& value);
int readStringSet(KQCMessageIterator& it, int tag, KQCOptionalProperty<KQCStringSet>& value);
void writeAddresses(KQCMessageIterator& it, int tag, const KQCOptionalProperty<KQCIPAddressList>& value);
int readAddresses(KQCMessageIterator& it, int tag, KQCOptionalProperty<KQCIPAddressList>& value);

// Reads a sparse property through `reader`, any of the readers here, given
// its arguments before the property: readSparse(m_x, readString, it, TAG_X).
template <class T, class Reader, class... Args>
int readSparse(KQCSparseProperty<T>& property, Reader reader, Args&&... args)
{
    KQCOptionalProperty<T> value;
    if (reader(std::forward<Args>(args)..., value) != 0)
        return -1;
    property = value;
    return 0;
}

// Plain (always present) list of addresses in the current node.
void writeAddressItems(KQCMessageIterator& it, int tag, const KQCIPAddressList& addresses);
int readAddressItems(KQCMessageIterator& it, int tag, KQCIPAddressList& addresses);

// Lists of records: a child node `listTag` with one `itemTag` object each.
template <class Container>
void writeObjects(KQCMessageIterator& it, int listTag, int itemTag,
                  const KQCOptionalProperty<Container>& value)
{
    if (!value.isSpecified())
        return;
    KQCMessageIterator list;
    it.appendChild(tagKey(listTag), list);
    for (const auto& item : value.get())
        list.addObj(itemTag, item);
}

template <class Container>
int readObjects(KQCMessageIterator& it, int listTag, int itemTag, KQCOptionalProperty<Container>& value)
{
    KQCMessageIterator list;
    if (it.childAt(tagKey(listTag), 0, list) != 0)
        return 0;
    std::vector<typename Container::value_type> items;
    if (list.getObjs(itemTag, items) != 0)
        return -1;
    value.set(Container(items.begin(), items.end()));
    return 0;
}

template <class T>
void writeObject(KQCMessageIterator& it, int tag, const KQCOptionalProperty<T>& value)
{
    if (value.isSpecified())
        it.addObj(tag, value.get());
}

template <class T>
int readObject(KQCMessageIterator& it, int tag, KQCOptionalProperty<T>& value)
{
    KQCMessageIterator child;
    if (it.childAt(tagKey(tag), 0, child) != 0)
        return 0;
    T object;
    if (object.readFrom(child) != 0)
        return -1;
    value.set(object);
    return 0;
}

} // namespace RecordMessageIO
} // namespace KQC
