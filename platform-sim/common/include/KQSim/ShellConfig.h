#pragma once
// Shell-style configuration files (KEY="value" lines) as the platform's
// tools keep them.
//
// The reader accepts what bash accepts in such simple assignment files:
// optional "export ", double quotes with the escapes \\ \" \$ \` and
// backslash-newline, single quotes, unquoted words with backslash escapes,
// several assignments on one line, comments and blank lines. Variables are
// not expanded: "$VEID" stays as written, which is what the host settings
// need. Lines that are not assignments are kept and ignored.
//
// The writer keeps every line it did not change byte for byte and writes
// changed values as KEY="value" quoted so that bash reads back the exact
// bytes.
//
// Failure: load/parse/save return -1 with the framework's error message.
// Thread safety: an object is used by one thread at a time.
#include <string>
#include <utility>
#include <vector>

namespace KQSim {

// value between double quotes with \ " $ ` escaped.
std::string shellQuote(const std::string& value);

// Name and description as the control tool stores them: escaped once more
// (\ " $ ` get a backslash) inside the file's own quoting, so that a
// reader that unquotes the file and then undoes the tool's escaping gets
// the text back byte for byte.
std::string toolEscaped(const std::string& value);
// Whether the tool stores the key's value escaped (NAME, DESCRIPTION).
bool isToolEscapedKey(const std::string& key);

class ShellConfig {
public:
    int parse(const std::string& text);
    int load(const std::string& path);
    int save(const std::string& path) const;

    bool has(const std::string& key) const;
    // The last assignment wins, as when the file is sourced.
    std::string get(const std::string& key, const std::string& fallback = "") const;
    // Replaces the first assignment of key in place and drops later ones;
    // a new key is appended at the end.
    void set(const std::string& key, const std::string& value);
    void unset(const std::string& key);

    // Every key with its effective value, in order of first appearance.
    std::vector<std::pair<std::string, std::string>> values() const;
    std::string text() const;

private:
    struct Statement {
        std::string raw;
        std::vector<std::pair<std::string, std::string>> assignments;
        bool changed = false;
    };
    std::vector<Statement> m_statements;
};

} // namespace KQSim
