#include "KQC/Message.h"

#include "TextHelpers.h"
#include "KQC/Error.h"
#include "KQC/Files.h"

#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <utility>

namespace KQC {

struct KQCMessageElement {
    enum Kind { Int, String, Node };
    std::string key;
    Kind kind = Int;
    long long number = 0;
    std::string text;
    boost::shared_ptr<KQCMessageNode> node;
};

struct KQCMessageNode {
    std::vector<KQCMessageElement> elements;
};

namespace {

using boost::property_tree::ptree;

boost::shared_ptr<KQCMessageNode> cloneNode(const KQCMessageNode& node);

KQCMessageElement cloneElement(const KQCMessageElement& element)
{
    KQCMessageElement copy = element;
    if (element.node)
        copy.node = cloneNode(*element.node);
    return copy;
}

boost::shared_ptr<KQCMessageNode> cloneNode(const KQCMessageNode& node)
{
    boost::shared_ptr<KQCMessageNode> copy(new KQCMessageNode);
    for (const KQCMessageElement& element : node.elements)
        copy->elements.push_back(cloneElement(element));
    return copy;
}

const KQCMessageElement* findElement(const KQCMessageNode& node, const std::string& key)
{
    for (const KQCMessageElement& element : node.elements)
        if (element.key == key)
            return &element;
    return nullptr;
}

KQCMessageElement intElement(const std::string& key, long long number)
{
    KQCMessageElement element;
    element.key = key;
    element.kind = KQCMessageElement::Int;
    element.number = number;
    return element;
}

KQCMessageElement stringElement(const std::string& key, const std::string& text)
{
    KQCMessageElement element;
    element.key = key;
    element.kind = KQCMessageElement::String;
    element.text = text;
    return element;
}

const KQCMessageElement* findNode(const KQCMessageNode& node, const std::string& key, int index)
{
    for (const KQCMessageElement& element : node.elements)
        if (element.key == key && element.kind == KQCMessageElement::Node && index-- == 0)
            return &element;
    return nullptr;
}

void removeElements(KQCMessageNode& node, const std::string& key)
{
    std::vector<KQCMessageElement> kept;
    for (KQCMessageElement& element : node.elements)
        if (element.key != key)
            kept.push_back(element);
    node.elements.swap(kept);
}

std::vector<std::string> splitPath(const std::string& path)
{
    std::vector<std::string> parts;
    std::string part;
    for (char c : path) {
        if (c == '/') {
            if (!part.empty())
                parts.push_back(part);
            part.clear();
        } else {
            part += c;
        }
    }
    if (!part.empty())
        parts.push_back(part);
    return parts;
}

// Text that an XML parser gives back unchanged needs no escaping; anything
// with control bytes or blanks at its edges is escaped with backslashes.
bool needsEscaping(const std::string& text)
{
    if (!text.empty() && (text.front() == ' ' || text.back() == ' '))
        return true;
    for (unsigned char c : text)
        if (c < 0x20 || c == 0x7f || c == '\\')
            return true;
    return false;
}

std::string escapeText(const std::string& text)
{
    static const char hex[] = "0123456789abcdef";
    std::string out;
    for (unsigned char c : text) {
        if (c == '\\')
            out += "\\\\";
        else if (c == '\n')
            out += "\\n";
        else if (c == '\t')
            out += "\\t";
        else if (c < 0x20 || c == 0x7f || c == ' ') {
            out += "\\x";
            out += hex[c >> 4];
            out += hex[c & 15];
        } else
            out += static_cast<char>(c);
    }
    return out;
}

int unescapeText(const std::string& text, std::string& out)
{
    out.clear();
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            out += text[i];
            continue;
        }
        if (++i >= text.size())
            return -1;
        char c = text[i];
        if (c == '\\')
            out += '\\';
        else if (c == 'n')
            out += '\n';
        else if (c == 't')
            out += '\t';
        else if (c == 'x' && i + 2 < text.size() && hexDigitValue(text[i + 1]) >= 0 &&
                 hexDigitValue(text[i + 2]) >= 0) {
            out += static_cast<char>(hexDigitValue(text[i + 1]) * 16 + hexDigitValue(text[i + 2]));
            i += 2;
        } else
            return -1;
    }
    return 0;
}

const char* elementTag(KQCMessageElement::Kind kind)
{
    switch (kind) {
    case KQCMessageElement::Int:
        return "int";
    case KQCMessageElement::String:
        return "str";
    case KQCMessageElement::Node:
        break;
    }
    return "node";
}

// Each child is made in its place under its parent and filled there: a
// finished subtree handed to its parent would be copied once more at every
// level above it, which makes saving grow with the square of the nesting.
void nodeToTree(const KQCMessageNode& node, ptree& tree)
{
    for (const KQCMessageElement& element : node.elements) {
        ptree& child = tree.push_back(ptree::value_type(elementTag(element.kind), ptree()))->second;
        child.put("<xmlattr>.key", element.key);
        if (element.kind == KQCMessageElement::Int) {
            child.put_value(std::to_string(element.number));
        } else if (element.kind == KQCMessageElement::String) {
            if (needsEscaping(element.text)) {
                child.put("<xmlattr>.escaped", "1");
                child.put_value(escapeText(element.text));
            } else {
                child.put_value(element.text);
            }
        } else {
            nodeToTree(*element.node, child);
        }
    }
}

int parseNumber(const std::string& text, long long& number)
{
    if (text.empty())
        return -1;
    errno = 0;
    char* end = nullptr;
    number = std::strtoll(text.c_str(), &end, 10);
    return (errno != 0 || *end != '\0') ? -1 : 0;
}

int treeToNode(const ptree& tree, KQCMessageNode& node, std::string& problem);

int readElement(const std::string& kind, const ptree& child, KQCMessageElement& element,
                std::string& problem)
{
    boost::optional<std::string> key = child.get_optional<std::string>("<xmlattr>.key");
    if (!key) {
        problem = "element <" + kind + "> without a key";
        return -1;
    }
    element.key = *key;
    if (kind == "int") {
        element.kind = KQCMessageElement::Int;
        if (parseNumber(child.data(), element.number) != 0) {
            problem = "bad number '" + child.data() + "' under '" + element.key + "'";
            return -1;
        }
        return 0;
    }
    if (kind == "str") {
        element.kind = KQCMessageElement::String;
        if (child.get<std::string>("<xmlattr>.escaped", "0") != "1") {
            element.text = child.data();
            return 0;
        }
        if (unescapeText(child.data(), element.text) != 0) {
            problem = "bad escape under '" + element.key + "'";
            return -1;
        }
        return 0;
    }
    if (kind == "node") {
        element.kind = KQCMessageElement::Node;
        element.node.reset(new KQCMessageNode);
        return treeToNode(child, *element.node, problem);
    }
    problem = "unknown element <" + kind + ">";
    return -1;
}

int treeToNode(const ptree& tree, KQCMessageNode& node, std::string& problem)
{
    for (const ptree::value_type& entry : tree) {
        if (entry.first == "<xmlattr>" || entry.first == "<xmlcomment>")
            continue;
        KQCMessageElement element;
        if (readElement(entry.first, entry.second, element, problem) != 0)
            return -1;
        node.elements.push_back(std::move(element));
    }
    return 0;
}

// Our messages nest a handful of levels; the XML reader and every walk
// over the tree below recurse once per level, so a file of nothing but
// opening tags would exhaust the stack long before it ran out of text.
constexpr size_t kMaxMessageDepth = 64;

// Where the markup construct that starts at `from` ends (one past its
// closing text), or npos when it never ends.
size_t skipPast(const std::string& text, size_t from, const char* closing)
{
    size_t at = text.find(closing, from);
    return at == std::string::npos ? at : at + std::strlen(closing);
}

// The end of a start or end tag that begins at `from`; '>' inside quoted
// attribute values does not end it.
size_t tagEnd(const std::string& text, size_t from)
{
    char quote = 0;
    for (size_t i = from; i < text.size(); ++i) {
        char c = text[i];
        if (quote)
            quote = c == quote ? 0 : quote;
        else if (c == '"' || c == '\'')
            quote = c;
        else if (c == '>')
            return i;
    }
    return std::string::npos;
}

// One past the end of a document type declaration: its bracketed internal
// part may hold '>' and '<', all of it skipped as the reader skips it.
size_t declarationEnd(const std::string& text, size_t from)
{
    size_t brackets = 0;
    for (size_t i = from; i < text.size(); ++i) {
        if (text[i] == '[')
            ++brackets;
        else if (text[i] == ']' && brackets > 0)
            --brackets;
        else if (text[i] == '>' && brackets == 0)
            return i + 1;
    }
    return std::string::npos;
}

// The deepest element nesting of the text, counted the way the XML reader
// will see it (comments, CDATA, declarations and processing instructions
// hold no elements), stopping as soon as it passes `limit`. Unbalanced or
// unterminated markup is left for the reader to reject.
size_t nestingDepth(const std::string& text, size_t limit)
{
    size_t depth = 0;
    size_t deepest = 0;
    size_t i = text.find('<');
    while (i != std::string::npos && i + 1 < text.size() && deepest <= limit) {
        size_t next;
        if (text.compare(i, 4, "<!--") == 0)
            next = skipPast(text, i + 4, "-->");
        else if (text.compare(i, 9, "<![CDATA[") == 0)
            next = skipPast(text, i + 9, "]]>");
        else if (text[i + 1] == '?')
            next = skipPast(text, i + 2, "?>");
        else if (text.compare(i, 9, "<!DOCTYPE") == 0)
            next = declarationEnd(text, i + 9);
        else if (text[i + 1] == '!')
            next = skipPast(text, i + 2, ">");
        else {
            size_t end = tagEnd(text, i + 1);
            if (end == std::string::npos)
                break;
            if (text[i + 1] == '/')
                depth -= depth > 0 ? 1 : 0;
            else if (text[end - 1] != '/')
                deepest = std::max(deepest, ++depth);
            next = end + 1;
        }
        if (next == std::string::npos)
            break;
        i = text.find('<', next);
    }
    return deepest;
}

// Reads the plain form that saving writes (an XML declaration, <message>
// with its name, and <node>, <str> and <int> elements with their keys,
// blanks between them) without building the general XML reader's tree,
// which costs many times more on every record the agent loads. Anything
// else it meets (comments, entities, CDATA, other elements, attributes or
// quoting, a text that does not parse) makes it give up without a verdict:
// the general reader then decides, so both agree on every text this one
// takes. The caller has bounded the nesting.
class PlainMessageReader {
public:
    explicit PlainMessageReader(const std::string& text) : m_text(text) {}

    // True with name and node filled; false when the general reader must
    // decide (name and node then hold no meaning).
    bool read(std::string& name, KQCMessageNode& node)
    {
        // One vectorised search per byte: a search for either of two bytes
        // goes byte by byte.
        if (m_text.find('&') != std::string::npos || m_text.find('\0') != std::string::npos)
            return false;
        skipBlanks();
        if (m_text.compare(m_at, 5, "<?xml") == 0 && m_at + 5 < m_text.size() && isBlank(m_text[m_at + 5])) {
            size_t end = m_text.find("?>", m_at + 5);
            if (end == std::string::npos)
                return false;
            m_at = end + 2;
            skipBlanks();
        }
        Attributes attributes;
        if (!startTag("message", attributes) || !attributes.only("name"))
            return false;
        name = attributes.name;
        if (!readChildren(node, "message"))
            return false;
        skipBlanks();
        return m_at == m_text.size();
    }

private:
    // The attributes an element of ours may have, each at most once.
    struct Attributes {
        bool hasKey = false, hasEscaped = false, hasName = false;
        std::string key, escaped, name;
        bool only(const char* allowed) const
        {
            std::string list = allowed;
            return (!hasKey || list.find("key") != std::string::npos) &&
                   (!hasEscaped || list.find("escaped") != std::string::npos) &&
                   (!hasName || list.find("name") != std::string::npos);
        }
    };

    static bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
    void skipBlanks()
    {
        while (m_at < m_text.size() && isBlank(m_text[m_at]))
            ++m_at;
    }
    bool take(const char* literal)
    {
        size_t length = std::strlen(literal);
        if (m_text.compare(m_at, length, literal) != 0)
            return false;
        m_at += length;
        return true;
    }

    // `<tag attr="value" ...>` at the current place; not an empty element.
    bool startTag(const char* tag, Attributes& attributes)
    {
        if (!take("<") || !take(tag) || m_at >= m_text.size())
            return false;
        while (m_at < m_text.size() && isBlank(m_text[m_at])) {
            skipBlanks();
            if (m_at < m_text.size() && m_text[m_at] == '>')
                break;
            if (!attribute(attributes))
                return false;
        }
        return take(">");
    }

    bool attribute(Attributes& attributes)
    {
        size_t equals = m_text.find('=', m_at);
        if (equals == std::string::npos)
            return false;
        std::string attributeName = m_text.substr(m_at, equals - m_at);
        m_at = equals + 1;
        if (!take("\""))
            return false;
        size_t quote = m_text.find('"', m_at);
        if (quote == std::string::npos)
            return false;
        std::string value = m_text.substr(m_at, quote - m_at);
        m_at = quote + 1;
        bool* has = nullptr;
        std::string* into = nullptr;
        if (attributeName == "key") {
            has = &attributes.hasKey;
            into = &attributes.key;
        } else if (attributeName == "escaped") {
            has = &attributes.hasEscaped;
            into = &attributes.escaped;
        } else if (attributeName == "name") {
            has = &attributes.hasName;
            into = &attributes.name;
        } else {
            return false;
        }
        if (*has)
            return false;
        *has = true;
        *into = value;
        return m_at < m_text.size() && (isBlank(m_text[m_at]) || m_text[m_at] == '>');
    }

    // The elements up to `</closing>`; the text between them is not ours.
    bool readChildren(KQCMessageNode& node, const char* closing)
    {
        for (;;) {
            size_t open = m_text.find('<', m_at);
            if (open == std::string::npos)
                return false;
            m_at = open;
            if (m_text.compare(m_at, 2, "</") == 0) {
                m_at += 2;
                return take(closing) && take(">");
            }
            KQCMessageElement element;
            if (!readElement(element))
                return false;
            node.elements.push_back(std::move(element));
        }
    }

    bool readElement(KQCMessageElement& element)
    {
        Attributes attributes;
        if (m_text.compare(m_at, 5, "<node") == 0) {
            if (!startTag("node", attributes) || !attributes.hasKey || !attributes.only("key"))
                return false;
            element.key = attributes.key;
            element.kind = KQCMessageElement::Node;
            element.node.reset(new KQCMessageNode);
            return readChildren(*element.node, "node");
        }
        bool isString = m_text.compare(m_at, 4, "<str") == 0;
        if (!isString && m_text.compare(m_at, 4, "<int") != 0)
            return false;
        const char* tag = isString ? "str" : "int";
        if (!startTag(tag, attributes) || !attributes.hasKey || !attributes.only(isString ? "key escaped" : "key"))
            return false;
        size_t end = m_text.find('<', m_at);
        if (end == std::string::npos)
            return false;
        std::string data = m_text.substr(m_at, end - m_at);
        m_at = end;
        if (!take("</") || !take(tag) || !take(">"))
            return false;
        element.key = attributes.key;
        if (!isString) {
            element.kind = KQCMessageElement::Int;
            return parseNumber(data, element.number) == 0;
        }
        element.kind = KQCMessageElement::String;
        if (attributes.escaped != "1") {
            element.text = std::move(data);
            return true;
        }
        return unescapeText(data, element.text) == 0;
    }

    const std::string& m_text;
    size_t m_at = 0;
};

int parseMessageText(const std::string& text, std::string& name, KQCMessageNode& node,
                     std::string& problem)
{
    if (nestingDepth(text, kMaxMessageDepth) > kMaxMessageDepth) {
        problem = "elements nested deeper than " + std::to_string(kMaxMessageDepth) + " levels";
        return -1;
    }
    {
        std::string plainName;
        KQCMessageNode plain;
        if (PlainMessageReader(text).read(plainName, plain)) {
            name.swap(plainName);
            node.elements.swap(plain.elements);
            return 0;
        }
    }
    ptree document;
    try {
        std::istringstream input(text);
        boost::property_tree::read_xml(input, document);
    } catch (const std::exception& error) {
        problem = error.what();
        return -1;
    }
    const ptree* top = nullptr;
    for (const ptree::value_type& entry : document) {
        if (entry.first == "<xmlcomment>")
            continue;
        if (entry.first != "message" || top) {
            problem = "the top element is not one <message>";
            return -1;
        }
        top = &entry.second;
    }
    if (!top) {
        problem = "no <message> element";
        return -1;
    }
    name = top->get<std::string>("<xmlattr>.name", "");
    return treeToNode(*top, node, problem);
}

} // namespace

// ---- iterator ----

KQCMessageIterator::KQCMessageIterator() {}

KQCMessageIterator::KQCMessageIterator(const boost::shared_ptr<KQCMessageNode>& root)
    : m_root(root), m_path(1, root)
{
}

bool KQCMessageIterator::isValid() const { return m_root && !m_path.empty(); }

KQCMessageNode* KQCMessageIterator::current() const
{
    return m_path.empty() ? nullptr : m_path.back().get();
}

int KQCMessageIterator::moveTo(const std::string& path)
{
    if (!isValid())
        return -1;
    std::vector<boost::shared_ptr<KQCMessageNode>> walk = m_path;
    if (!path.empty() && path[0] == '/')
        walk.resize(1);
    for (const std::string& part : splitPath(path)) {
        const KQCMessageElement* element = findNode(*walk.back(), canonicalKey(part), 0);
        if (!element)
            return -1;
        walk.push_back(element->node);
    }
    m_path.swap(walk);
    return 0;
}

int KQCMessageIterator::enter(const std::string& key)
{
    if (!isValid())
        return -1;
    const KQCMessageElement* element = findNode(*current(), canonicalKey(key), 0);
    if (!element)
        return -1;
    m_path.push_back(element->node);
    return 0;
}

int KQCMessageIterator::enterOrCreate(const std::string& key)
{
    if (enter(key) == 0)
        return 0;
    return createChild(key);
}

int KQCMessageIterator::createChild(const std::string& key)
{
    if (!isValid())
        return -1;
    KQCMessageElement element;
    element.key = canonicalKey(key);
    element.kind = KQCMessageElement::Node;
    element.node.reset(new KQCMessageNode);
    current()->elements.push_back(element);
    m_path.push_back(element.node);
    return 0;
}

int KQCMessageIterator::up()
{
    if (m_path.size() < 2)
        return -1;
    m_path.pop_back();
    return 0;
}

void KQCMessageIterator::top()
{
    if (isValid())
        m_path.resize(1);
}

std::string KQCMessageIterator::currentPath() const
{
    std::string path;
    for (size_t depth = 1; depth < m_path.size(); ++depth) {
        const KQCMessageNode& parent = *m_path[depth - 1];
        for (const KQCMessageElement& element : parent.elements)
            if (element.node == m_path[depth]) {
                path += (path.empty() ? "" : "/") + element.key;
                break;
            }
    }
    return path;
}

int KQCMessageIterator::getInt64(int tag, long long& value) const
{
    if (!isValid())
        return -1;
    const KQCMessageElement* element = findElement(*current(), tagKey(tag));
    if (!element || element->kind != KQCMessageElement::Int)
        return -1;
    value = element->number;
    return 0;
}

int KQCMessageIterator::getInt(int tag, int& value) const
{
    long long number;
    if (getInt64(tag, number) != 0 || number < INT32_MIN || number > INT32_MAX)
        return -1;
    value = static_cast<int>(number);
    return 0;
}

int KQCMessageIterator::getString(int tag, std::string& value) const
{
    return getStringByKey(tagKey(tag), value);
}

int KQCMessageIterator::getStringByKey(const std::string& key, std::string& value) const
{
    if (!isValid())
        return -1;
    const KQCMessageElement* element = findElement(*current(), key);
    if (!element || element->kind != KQCMessageElement::String)
        return -1;
    value = element->text;
    return 0;
}

int KQCMessageIterator::putInt64(int tag, long long value)
{
    if (!isValid())
        return -1;
    remove(tag);
    current()->elements.push_back(intElement(tagKey(tag), value));
    return 0;
}

int KQCMessageIterator::putInt(int tag, int value) { return putInt64(tag, value); }

int KQCMessageIterator::putString(int tag, const std::string& value)
{
    return putStringByKey(tagKey(tag), value);
}

int KQCMessageIterator::putStringByKey(const std::string& key, const std::string& value)
{
    if (!isValid())
        return -1;
    removeKey(key);
    current()->elements.push_back(stringElement(key, value));
    return 0;
}

int KQCMessageIterator::addInt(int tag, int value)
{
    if (!isValid())
        return -1;
    current()->elements.push_back(intElement(tagKey(tag), value));
    return 0;
}

int KQCMessageIterator::addString(int tag, const std::string& value)
{
    if (!isValid())
        return -1;
    current()->elements.push_back(stringElement(tagKey(tag), value));
    return 0;
}

int KQCMessageIterator::getStrings(int tag, std::vector<std::string>& values) const
{
    if (!isValid())
        return -1;
    const std::string key = tagKey(tag);
    for (const KQCMessageElement& element : current()->elements) {
        if (element.key != key)
            continue;
        if (element.kind == KQCMessageElement::String)
            values.push_back(element.text);
        else if (element.kind == KQCMessageElement::Int)
            values.push_back(std::to_string(element.number));
    }
    return 0;
}

bool KQCMessageIterator::has(int tag) const { return hasKey(tagKey(tag)); }

bool KQCMessageIterator::hasKey(const std::string& key) const
{
    return isValid() && findElement(*current(), canonicalKey(key)) != nullptr;
}

int KQCMessageIterator::remove(int tag) { return removeKey(tagKey(tag)); }

int KQCMessageIterator::removeKey(const std::string& key)
{
    if (!isValid())
        return -1;
    removeElements(*current(), canonicalKey(key));
    return 0;
}

int KQCMessageIterator::copyElementsTo(const std::string& key, KQCMessageIterator& target) const
{
    if (!isValid() || !target.isValid())
        return -1;
    const std::string wanted = canonicalKey(key);
    // Collected first: target may be this very node.
    std::vector<KQCMessageElement> copies;
    for (const KQCMessageElement& element : current()->elements)
        if (element.key == wanted)
            copies.push_back(cloneElement(element));
    if (copies.empty())
        return -1;
    for (const KQCMessageElement& element : copies)
        target.current()->elements.push_back(element);
    return 0;
}

int KQCMessageIterator::copyPathTo(const std::string& path, KQCMessageIterator& target) const
{
    std::vector<std::string> parts = splitPath(path);
    if (parts.empty() || !isValid() || !target.isValid())
        return -1;
    const std::string key = parts.back();
    parts.pop_back();
    std::string parentPath = "/";
    for (const std::string& part : parts)
        parentPath += part + "/";
    KQCMessageIterator source = *this;
    if (source.moveTo(parentPath) != 0 || !source.hasKey(key))
        return -1;
    KQCMessageIterator destination = target;
    destination.top();
    for (const std::string& part : parts)
        if (destination.enterOrCreate(part) != 0)
            return -1;
    return source.copyElementsTo(key, destination);
}

std::vector<std::string> KQCMessageIterator::keys() const
{
    std::vector<std::string> names;
    if (isValid())
        for (const KQCMessageElement& element : current()->elements)
            names.push_back(element.key);
    return names;
}

int KQCMessageIterator::childAt(const std::string& key, int index, KQCMessageIterator& child) const
{
    if (!isValid())
        return -1;
    const KQCMessageElement* element = findNode(*current(), canonicalKey(key), index);
    if (!element)
        return -1;
    child = *this;
    child.m_path.push_back(element->node);
    return 0;
}

int KQCMessageIterator::appendChild(const std::string& key, KQCMessageIterator& child)
{
    child = *this;
    return child.createChild(key);
}

// ---- message ----

KQCMessage::KQCMessage() : m_root(new KQCMessageNode) {}

void KQCMessage::setName(const std::string& name) { m_name = name; }

KQCMessageIterator KQCMessage::getIterator() const { return KQCMessageIterator(m_root); }

void KQCMessage::clear() { m_root->elements.clear(); }

int KQCMessage::loadFromString(const std::string& text)
{
    std::string name;
    KQCMessageNode node;
    std::string problem;
    if (parseMessageText(text, name, node, problem) != 0) {
        setErrorMessage("malformed message: %s", problem.c_str());
        return -1;
    }
    m_name = name;
    // The tree is replaced in place so that iterators already handed out see
    // the new content rather than a detached old tree.
    m_root->elements.swap(node.elements);
    return 0;
}

int KQCMessage::saveToString(std::string& text) const
{
    try {
        ptree document;
        ptree& top = document.push_back(ptree::value_type("message", ptree()))->second;
        top.put("<xmlattr>.name", m_name);
        nodeToTree(*m_root, top);
        std::ostringstream output;
        boost::property_tree::write_xml(output, document,
                                        boost::property_tree::xml_writer_make_settings<std::string>(' ', 1));
        text = output.str();
        return 0;
    } catch (const std::exception& error) {
        setErrorMessage("can't format message: %s", error.what());
        return -1;
    }
}

int KQCMessage::load(const std::string& path)
{
    std::string text;
    if (file2str(path, text) != 0)
        return -1;
    if (loadFromString(text) != 0) {
        std::string problem = getErrorMessage();
        setErrorMessage("can't load message '%s' : %s", path.c_str(), problem.c_str());
        return -1;
    }
    return 0;
}

int KQCMessage::save(const std::string& path) const
{
    std::string text;
    if (saveToString(text) != 0)
        return -1;
    // Messages are world-readable configuration, as they always were.
    return writeFileAtomic(path, text, 0644);
}

boost::shared_ptr<KQCMessage> KQCMsgFactory::createNew()
{
    return boost::shared_ptr<KQCMessage>(new KQCMessage);
}

} // namespace KQC
