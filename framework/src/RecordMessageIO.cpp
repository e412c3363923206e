#include "RecordMessageIO.h"

namespace KQC {
namespace RecordMessageIO {

void writeString(KQCMessageIterator& it, int tag, const KQCOptionalProperty<std::string>& value)
{
    if (value.isSpecified())
        it.addString(tag, value.get());
}

int readString(KQCMessageIterator& it, int tag, KQCOptionalProperty<std::string>& value)
{
    if (!it.has(tag))
        return 0;
    std::string text;
    if (it.getString(tag, text) != 0)
        return -1;
    value.set(text);
    return 0;
}

void writeInt(KQCMessageIterator& it, int tag, const KQCOptionalProperty<int>& value)
{
    if (value.isSpecified())
        it.addInt(tag, value.get());
}

int readInt(KQCMessageIterator& it, int tag, KQCOptionalProperty<int>& value)
{
    if (!it.has(tag))
        return 0;
    int number;
    if (it.getInt(tag, number) != 0)
        return -1;
    value.set(number);
    return 0;
}

void writeBool(KQCMessageIterator& it, int tag, const KQCOptionalProperty<bool>& value)
{
    if (value.isSpecified())
        it.addInt(tag, value.get() ? 1 : 0);
}

int readBool(KQCMessageIterator& it, int tag, KQCOptionalProperty<bool>& value)
{
    KQCOptionalProperty<int> number;
    if (readInt(it, tag, number) != 0)
        return -1;
    if (number.isSpecified())
        value.set(number.get() != 0);
    return 0;
}

namespace {

template <class Container>
void writeItems(KQCMessageIterator& it, int tag, const Container& items)
{
    KQCMessageIterator list;
    it.appendChild(tagKey(tag), list);
    for (const std::string& item : items)
        list.addString(TAG_ITEM, item);
}

int readItems(KQCMessageIterator& it, int tag, bool& present, KQCStringList& items)
{
    KQCMessageIterator list;
    present = it.childAt(tagKey(tag), 0, list) == 0;
    if (!present)
        return 0;
    return list.getStrings(TAG_ITEM, items);
}

} // namespace

void writeStrings(KQCMessageIterator& it, int tag, const KQCOptionalProperty<KQCStringList>& value)
{
    if (value.isSpecified())
        writeItems(it, tag, value.get());
}

int readStrings(KQCMessageIterator& it, int tag, KQCOptionalProperty<KQCStringList>& value)
{
    bool present;
    KQCStringList items;
    if (readItems(it, tag, present, items) != 0)
        return -1;
    if (present)
        value.set(items);
    return 0;
}

void writeStringSet(KQCMessageIterator& it, int tag, const KQCOptionalProperty<KQCStringSet>& value)
{
    if (value.isSpecified())
        writeItems(it, tag, value.get());
}

int readStringSet(KQCMessageIterator& it, int tag, KQCOptionalProperty<KQCStringSet>& value)
{
    bool present;
    KQCStringList items;
    if (readItems(it, tag, present, items) != 0)
        return -1;
    if (present)
        value.set(KQCStringSet(items.begin(), items.end()));
    return 0;
}

void writeAddressItems(KQCMessageIterator& it, int tag, const KQCIPAddressList& addresses)
{
    KQCStringList texts;
    for (const KQCIPAddress& address : addresses)
        texts.push_back(address.toString());
    writeItems(it, tag, texts);
}

int readAddressItems(KQCMessageIterator& it, int tag, KQCIPAddressList& addresses)
{
    bool present;
    KQCStringList items;
    if (readItems(it, tag, present, items) != 0)
        return -1;
    for (const std::string& text : items) {
        KQCIPAddress address;
        if (address.fromString(text) != 0)
            return -1;
        addresses.push_back(address);
    }
    return 0;
}

void writeAddresses(KQCMessageIterator& it, int tag, const KQCOptionalProperty<KQCIPAddressList>& value)
{
    if (value.isSpecified())
        writeAddressItems(it, tag, value.get());
}

int readAddresses(KQCMessageIterator& it, int tag, KQCOptionalProperty<KQCIPAddressList>& value)
{
    if (!it.has(tag))
        return 0;
    KQCIPAddressList addresses;
    if (readAddressItems(it, tag, addresses) != 0)
        return -1;
    value.set(addresses);
    return 0;
}

} // namespace RecordMessageIO
} // namespace KQC
