#pragma once
// Framework messages: a named tree of nodes, each holding an ordered list of
// elements. An element has a key (a name; numeric tags stand for names, see
// Tags.h) and is an integer, a string or a child node. Several elements may
// share a key: that is how lists are carried.
//
// Messages round-trip through files in a readable XML form:
//   <message name="packet">
//     <node key="envConfig"><int key="veid">101</int><str key="name">web</str></node>
//   </message>
// Strings holding control characters or edge blanks are written with
// escaped="1" and backslash escapes, so every byte string survives.
//
// Ownership: a message owns its tree; iterators share it, so an iterator
// stays usable after the message object is gone.
// Thread safety: none. A message and its iterators belong to one thread at
// a time.
// Failure: every int-returning operation gives 0 on success and -1 on
// failure; load/save set the error message, lookups that merely miss do not.

#include "KQC/Tags.h"

#include <boost/shared_ptr.hpp>

#include <string>
#include <vector>

namespace KQC {

struct KQCMessageNode;

class KQCMessageIterator {
public:
    KQCMessageIterator();
    explicit KQCMessageIterator(const boost::shared_ptr<KQCMessageNode>& root);

    bool isValid() const;

    // Moves along child nodes. A path that begins with "/" starts at the
    // top, any other at the current node; empty components are skipped and
    // each component may be a name or a tag number. When a component names
    // no child node the iterator stays where it was and -1 is returned.
    int moveTo(const std::string& path);
    // Values are not nodes: to reach the value "a/b/name", move to "a/b"
    // and read or copy the key "name" there (or use copyPathTo).

    // Into the first child node of that key (-1 when there is none).
    int enter(const std::string& key);
    // Into the first child node of that key, made (appended) when missing.
    int enterOrCreate(const std::string& key);
    // Appends a new child node of that key and goes into it.
    int createChild(const std::string& key);
    // To the parent node (-1 at the top).
    int up();
    void top();
    // The keys from the top to here, joined by "/" ("" at the top).
    std::string currentPath() const;

    // Values of the current node. get* read the first element of the key and
    // fail when there is none or it is of another kind; put* replace every
    // element of the key with one; add* append one more.
    int getInt(int tag, int& value) const;
    int getInt64(int tag, long long& value) const;
    int getString(int tag, std::string& value) const;
    int putInt(int tag, int value);
    int putInt64(int tag, long long value);
    int putString(int tag, const std::string& value);
    int addInt(int tag, int value);
    int addString(int tag, const std::string& value);
    // Every string (or int) element of the key, in order; 0 even when none.
    int getStrings(int tag, std::vector<std::string>& values) const;

    // Objects: any T with `int readFrom(KQCMessageIterator&)` and
    // `int writeTo(KQCMessageIterator&) const`, stored as a child node.
    template <class T>
    int getObj(int tag, T& object) const
    {
        KQCMessageIterator child;
        if (childAt(tagKey(tag), 0, child) != 0)
            return -1;
        return object.readFrom(child);
    }
    template <class T>
    int putObj(int tag, const T& object)
    {
        remove(tag);
        return addObj(tag, object);
    }
    template <class T>
    int addObj(int tag, const T& object)
    {
        KQCMessageIterator child;
        if (appendChild(tagKey(tag), child) != 0)
            return -1;
        return object.writeTo(child);
    }
    // Every object of the key, in order; -1 when one of them does not read.
    template <class T>
    int getObjs(int tag, std::vector<T>& objects) const
    {
        const std::string key = tagKey(tag);
        KQCMessageIterator child;
        for (int index = 0; childAt(key, index, child) == 0; ++index) {
            T object;
            if (object.readFrom(child) != 0)
                return -1;
            objects.push_back(object);
        }
        return 0;
    }

    bool has(int tag) const;
    bool hasKey(const std::string& key) const;
    // Removes every element of the key; 0 even when there was none.
    int remove(int tag);
    int removeKey(const std::string& key);
    // Appends deep copies of every element of `key` in this node, in order,
    // to the current node of `target`. -1 when this node has none.
    int copyElementsTo(const std::string& key, KQCMessageIterator& target) const;
    // Copies every element at `path` (from the top; the last component
    // names the elements, the others are nodes) into `target` at the same
    // path, making the nodes `target` lacks. -1 when `path` names nothing.
    int copyPathTo(const std::string& path, KQCMessageIterator& target) const;
    // Names of the elements of the current node, in order (with repeats).
    std::vector<std::string> keys() const;

    // The key-based forms of the value calls, for keys outside the tag table.
    int getStringByKey(const std::string& key, std::string& value) const;
    int putStringByKey(const std::string& key, const std::string& value);
    int childAt(const std::string& key, int index, KQCMessageIterator& child) const;
    int appendChild(const std::string& key, KQCMessageIterator& child);

private:
    KQCMessageNode* current() const;

    boost::shared_ptr<KQCMessageNode> m_root;
    // The nodes from the top down to the current one, the top first.
    std::vector<boost::shared_ptr<KQCMessageNode>> m_path;
};

class KQCMessage {
public:
    KQCMessage();

    void setName(const std::string& name);
    const std::string& getName() const { return m_name; }

    // Replaces the content with the file's. The file is read as any host
    // file (KQC::file2str: regular, bounded, never blocking) and elements
    // may nest at most 64 levels. A missing, unreadable or malformed file
    // gives -1 with a message naming the file and the cause, and leaves
    // the message unchanged.
    [[nodiscard]] int load(const std::string& path);
    // Writes the file atomically (KQC::writeFileAtomic, mode 0644).
    [[nodiscard]] int save(const std::string& path) const;
    [[nodiscard]] int loadFromString(const std::string& text);
    [[nodiscard]] int saveToString(std::string& text) const;

    // An iterator at the top node; it can change the message (the const
    // only means the message object itself is not replaced).
    KQCMessageIterator getIterator() const;
    // Removes every element.
    void clear();

private:
    std::string m_name;
    boost::shared_ptr<KQCMessageNode> m_root;
};

struct KQCMsgFactory {
    static boost::shared_ptr<KQCMessage> createNew();
};

} // namespace KQC

