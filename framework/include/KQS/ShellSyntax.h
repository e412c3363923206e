#pragma once
// Shell-variable files: the reader and the writer under every configuration
// parser (BashParsers.h).
//
// The files hold one assignment per logical line, KEY=VALUE, with comments
// ("#" at the start of a line or after a value) and blank lines between.
// A value is made of unquoted text, '...' (everything literal), "..."
// (where \\ \" \$ \` stand for the character and backslash-newline joins
// lines) and $'...' in any sequence; outside quotes a backslash takes the
// next byte literally and backslash-newline joins lines. $'...' is bash's
// quoting with C escapes (printf %q and declare -p write it for control
// bytes): \a \b \e \E \f \n \r \t \v \\ \' \" \?, \nnn (octal), \xHH, \cX,
// and \uHHHH / \UHHHHHHHH written as UTF-8 (as bash does in a UTF-8
// locale); other escapes stay as written, and an escape making a NUL byte
// ends that quoted text, as in bash. $"..." reads as "...". Values are never
// expanded: "$VEID" stays "$VEID", which is how path templates are kept.
//
// The writer puts every value in double quotes and escapes exactly \ " $ `,
// so bash's `source` of a written file yields each value byte for byte.
//
// Errors (-1 with the error message set, naming the line): a quote left
// open, a NUL byte, a control byte outside quotes, shell syntax other than
// assignments, and physical lines longer than kMaxShellLineLength bytes.
// Thread safety: no shared state; every function may run on any thread.
#include <istream>
#include <map>
#include <string>
#include <vector>

namespace KQS {

const size_t kMaxShellLineLength = 65536;

// One logical line of a file as it was read.
struct KQSShellLine {
    // The raw text without its final newline, continuation lines included.
    std::string text;
    // 1-based number of the first physical line.
    int lineNumber = 0;
    bool isAssignment = false;
    std::string key;
    // Unquoted and unescaped.
    std::string value;
};

class KQSShellFile {
public:
    // Replaces the content with the parse of `text` / the stream's rest.
    int parse(const std::string& text);
    int parse(std::istream& input);

    const std::vector<KQSShellLine>& lines() const { return m_lines; }
    // The value of the last assignment of `key` (as bash would leave it).
    bool get(const std::string& key, std::string& value) const;
    // Every key with its last value.
    std::map<std::string, std::string> values() const;

private:
    std::vector<KQSShellLine> m_lines;
};

bool isValidShellKey(const std::string& key);

// "value" in double quotes with \ " $ ` escaped.
std::string shellQuote(const std::string& value);

// KEY="value". -1 with the message set for a key that is not a shell name or
// a value holding a NUL byte (bash cannot hold one).
int shellAssignment(const std::string& key, const std::string& value, std::string& line);

// Writes `pairs` (in their order) as a file. With keepOld and an old text,
// the old file's lines are kept in order: a line assigning a key of `pairs`
// gets the new value in place (later repeats of that key are dropped),
// comments, blank lines and other keys stay as they were, and keys the old
// file lacked are appended at the end.
int writeShellFile(const std::vector<std::pair<std::string, std::string>>& pairs, std::ostream& output,
                   std::istream* old, bool keepOld);

// Splits a command-style line into words with the same quoting rules (blank
// separated; "#" at the start of a word begins a comment). -1 with the
// message set for an open quote, a trailing backslash or a NUL byte.
int splitShellWords(const std::string& line, std::vector<std::string>& words);

} // namespace KQS

namespace KQC {

// Parses one KEY="value" line. 0 with the key and the value, -1 when the
// line is not exactly one assignment.
int parseBashStr(const std::string& line, std::string& key, std::string& value);

} // namespace KQC
