#pragma once
// GUIDs and environment identifiers.
//
// The text form is the framework's own: 36 characters, lower-case hex in
// the groups 8-4-4-4-12, wrapped in braces: "{0f1e2d3c-...}". fromString
// accepts it with or without the braces and in either letter case, so the
// text of a file name, a record or a command line reads back the same.
#include <cstdint>
#include <string>

namespace KQC {

class KQCGUIDBase {
public:
    KQCGUIDBase();  // the nil GUID, which is not valid
    // 0 when the text is a GUID (the value is then taken), -1 otherwise (the
    // value is left as it was).
    int fromString(const char* text);
    int fromString(const std::string& text) { return fromString(text.c_str()); }
    std::string toString() const;
    bool isValid() const;  // not nil
    // A new random (version 4) GUID, from the kernel's random source.
    static KQCGUIDBase generateNew();
    void generate() { *this = generateNew(); }
    // The GUID whose 16 bytes are `bytes`, as they stand.
    static KQCGUIDBase fromBytes(const uint8_t bytes[16]);

    bool operator==(const KQCGUIDBase& other) const;
    bool operator!=(const KQCGUIDBase& other) const { return !(*this == other); }
    bool operator<(const KQCGUIDBase& other) const;
    const uint8_t* bytes() const { return m_bytes; }

protected:
    uint8_t m_bytes[16];
};

class KQCGUID : public KQCGUIDBase {
public:
    KQCGUID() = default;
    KQCGUID(const KQCGUIDBase& base) : KQCGUIDBase(base) {}
    explicit KQCGUID(const std::string& text) { fromString(text); }
};

// An environment identifier. EID_LOCAL is the host itself.
class KQCEID : public KQCGUIDBase {
public:
    KQCEID() = default;
    KQCEID(const KQCGUIDBase& base) : KQCGUIDBase(base) {}
    explicit KQCEID(const std::string& text) { fromString(text); }
    static const KQCEID EID_INVALID;
    static const KQCEID EID_LOCAL;
};

// The strict weak order of EID sets and maps: byte-wise order of the value.
struct KQCEnvIDComparator {
    bool operator()(const KQCGUIDBase& a, const KQCGUIDBase& b) const { return a < b; }
};

} // namespace KQC
