#include "KQS/ShellSyntax.h"

#include "TextHelpers.h"

#include "KQC/Error.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <sstream>

namespace KQS {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }
bool isKeyStart(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; }
bool isKeyChar(char c) { return isKeyStart(c) || (c >= '0' && c <= '9'); }
bool isControl(char c)
{
    unsigned char byte = static_cast<unsigned char>(c);
    return (byte < 0x20 && c != '\t' && c != '\n') || byte == 0x7f;
}

// Characters that mean more than a value to the shell when unquoted.
bool isShellOperator(char c)
{
    return c == ';' || c == '|' || c == '&' || c == '<' || c == '>' || c == '(' || c == ')' || c == '`';
}
// Inside double quotes a backslash escapes only these (and a newline).
bool isDoubleQuoteEscapable(char c) { return c == '\\' || c == '"' || c == '$' || c == '`'; }

bool isOctal(char c) { return c >= '0' && c <= '7'; }

// Reads up to `limit` hex digits at `pos`; false when there is none.
bool readHex(const std::string& raw, size_t& pos, size_t limit, unsigned long& value)
{
    size_t start = pos;
    value = 0;
    while (pos < raw.size() && pos - start < limit && KQC::hexDigitValue(raw[pos]) >= 0)
        value = value * 16 + static_cast<unsigned long>(KQC::hexDigitValue(raw[pos++]));
    return pos > start;
}

// A code point as UTF-8, in the original form that reaches 31 bits (six
// bytes), which is what bash writes in a UTF-8 locale; above that nothing.
void appendUtf8(unsigned long code, std::string& out)
{
    if (code < 0x80) {
        out += static_cast<char>(code);
        return;
    }
    if (code > 0x7fffffff)
        return;
    int bytes = code < 0x800 ? 2 : code < 0x10000 ? 3 : code < 0x200000 ? 4 : code < 0x4000000 ? 5 : 6;
    static const unsigned char lead[] = {0, 0, 0xc0, 0xe0, 0xf0, 0xf8, 0xfc};
    out += static_cast<char>(lead[bytes] | (code >> (6 * (bytes - 1))));
    for (int shift = 6 * (bytes - 2); shift >= 0; shift -= 6)
        out += static_cast<char>(0x80 | ((code >> shift) & 0x3f));
}

// "\cx": the control character of x; "?" gives DEL.
char controlOf(char c)
{
    if (c == '?')
        return 0x7f;
    if (c >= 'a' && c <= 'z')
        c = static_cast<char>(c - 'a' + 'A');
    return static_cast<char>(c & 0x1f);
}

// Decodes one escape of a $'...' text at `pos` (just after the backslash)
// into `out`. Returns false when it makes a NUL byte: bash's strings end
// there, so the rest of that quoted text is dropped.
bool decodeAnsiEscape(const std::string& raw, size_t& pos, std::string& out)
{
    static const std::string kSimple = "abeEfnrtv\\'\"?";
    static const char kSimpleValues[] = "\a\b\x1b\x1b\f\n\r\t\v\\'\"?";
    char c = raw[pos];
    size_t simple = kSimple.find(c);
    if (simple != std::string::npos) {
        ++pos;
        out += kSimpleValues[simple];
        return true;
    }
    unsigned long code = 0;
    if (isOctal(c)) {
        for (size_t digits = 0; digits < 3 && pos < raw.size() && isOctal(raw[pos]); ++digits)
            code = code * 8 + static_cast<unsigned long>(raw[pos++] - '0');
        code &= 0xff;
    } else if ((c == 'x' || c == 'u' || c == 'U') && pos + 1 < raw.size()) {
        size_t digitsAt = pos + 1;
        if (!readHex(raw, digitsAt, c == 'x' ? 2 : c == 'u' ? 4 : 8, code)) {
            out += '\\';  // no digits: bash keeps the text as it stands
            return true;
        }
        pos = digitsAt;
        if (c != 'x') {
            if (code == 0)
                return false;
            appendUtf8(code, out);
            return true;
        }
    } else if (c == 'c' && pos + 1 < raw.size()) {
        char target = raw[pos + 1];
        pos += 2;
        // "\c\\" is the control character of one backslash.
        if (target == '\\' && pos < raw.size() && raw[pos] == '\\')
            ++pos;
        code = static_cast<unsigned char>(controlOf(target));
    } else {
        out += '\\';  // an unknown escape, or one cut short, is kept
        return true;
    }
    if (code == 0)
        return false;
    out += static_cast<char>(code);
    return true;
}

// The value of a $'...' text, given without its quotes.
std::string decodeAnsiC(const std::string& raw)
{
    std::string out;
    size_t pos = 0;
    while (pos < raw.size()) {
        char c = raw[pos++];
        if (c != '\\' || pos >= raw.size())
            out += c;
        else if (!decodeAnsiEscape(raw, pos, out))
            break;
    }
    return out;
}

// The reader: one state per syntactic situation, one byte per step.
class ShellFileParser {
public:
    ShellFileParser(const std::string& input, std::vector<KQSShellLine>& lines) : m_in(input), m_lines(lines) {}

    int run()
    {
        startLine();
        while (m_pos < m_in.size()) {
            if (size_t length = plainRun()) {
                if (takeRun(length) != 0)
                    return -1;
                continue;
            }
            char c = m_in[m_pos];
            if (c == '\0')
                return fail("NUL byte");
            if (step(c) != 0)
                return -1;
            if (c == '\n')
                newPhysicalLine();
            else if (++m_lineLength > kMaxShellLineLength)
                return tooLong();
            ++m_pos;
        }
        return finish();
    }

private:
    enum State { LINE_START, COMMENT, EXPORT_GAP, KEY, VALUE, SINGLE, DOUBLE, ANSI, AFTER_VALUE, TAIL_COMMENT };

    // How many bytes from here on the state would only append, one step
    // each, to the key or the quoted value: most of any file, taken whole.
    size_t plainRun() const
    {
        size_t end = m_pos;
        if (m_state == KEY) {
            while (end < m_in.size() && isKeyChar(m_in[end]))
                ++end;
        } else if (m_state == DOUBLE) {
            while (end < m_in.size() && m_in[end] != '"' && m_in[end] != '\\' && m_in[end] != '\n' &&
                   m_in[end] != '\0')
                ++end;
        }
        return end - m_pos;
    }

    int takeRun(size_t length)
    {
        (m_state == KEY ? m_key : m_value).append(m_in, m_pos, length);
        m_pos += length;
        m_lineLength += length;
        if (m_lineLength > kMaxShellLineLength)
            return tooLong();
        return 0;
    }

    int step(char c)
    {
        switch (m_state) {
        case LINE_START:
            return lineStart(c);
        case COMMENT:
            return comment(c);
        case EXPORT_GAP:
            return exportGap(c);
        case KEY:
            return key(c);
        case VALUE:
            return value(c);
        case SINGLE:
            return singleQuoted(c);
        case DOUBLE:
            return doubleQuoted(c);
        case ANSI:
            return ansiQuoted(c);
        case AFTER_VALUE:
            return afterValue(c);
        case TAIL_COMMENT:
            return tailComment(c);
        }
        return -1;
    }

    int lineStart(char c)
    {
        if (isBlank(c) || c == '\r')
            return 0;
        if (c == '\n')
            return emit(false);
        if (c == '#') {
            m_state = COMMENT;
            return 0;
        }
        if (isKeyStart(c)) {
            m_key.assign(1, c);
            m_state = KEY;
            return 0;
        }
        return unexpected(c);
    }

    int comment(char c)
    {
        if (c == '\n')
            return emit(false);
        return isControl(c) && c != '\r' ? unexpected(c) : 0;
    }

    int key(char c)
    {
        if (isKeyChar(c)) {
            m_key += c;
            return 0;
        }
        if (c == '=') {
            m_value.clear();
            m_state = VALUE;
            return 0;
        }
        // "export KEY=..." is an assignment too.
        if (isBlank(c) && m_key == "export") {
            m_key.clear();
            m_state = EXPORT_GAP;
            return 0;
        }
        if (c == '\n')
            return fail("expected '=' after '" + m_key + "'");
        return unexpected(c);
    }

    // After "export ": blanks, then the key proper.
    int exportGap(char c)
    {
        if (isBlank(c))
            return 0;
        if (!isKeyStart(c))
            return fail("expected a variable name after 'export'");
        m_key.assign(1, c);
        m_state = KEY;
        return 0;
    }

    int value(char c)
    {
        if (c == '\n')
            return emit(true);
        if (isBlank(c)) {
            m_state = AFTER_VALUE;
            return 0;
        }
        if (c == '"' || c == '\'') {
            m_quoteLine = m_physicalLine;
            m_state = c == '"' ? DOUBLE : SINGLE;
            return 0;
        }
        if (c == '\\')
            return unquotedEscape();
        if (c == '$' && m_pos + 1 < m_in.size() && (m_in[m_pos + 1] == '\'' || m_in[m_pos + 1] == '"'))
            return dollarQuote();
        if (c == '\r' && m_pos + 1 < m_in.size() && m_in[m_pos + 1] == '\n')
            return 0;
        if (isShellOperator(c))
            return fail(std::string("unsupported shell syntax '") + c + "' in the value of " + m_key);
        if (isControl(c))
            return unexpected(c);
        m_value += c;
        return 0;
    }

    int unquotedEscape()
    {
        if (m_pos + 1 >= m_in.size()) {
            m_value += '\\';
            return 0;
        }
        char next = m_in[++m_pos];
        if (next == '\0')
            return fail("NUL byte");
        if (next == '\n') {
            newPhysicalLine();
            return 0;
        }
        ++m_lineLength;
        m_value += next;
        return 0;
    }

    // $'...' is bash's quoting with C escapes, which printf %q and
    // declare -p write for tabs, newlines and other control bytes. $"..."
    // would be translated by a message catalogue; with none installed it is
    // plain double quoting.
    int dollarQuote()
    {
        char quote = m_in[++m_pos];
        ++m_lineLength;
        m_quoteLine = m_physicalLine;
        m_state = quote == '"' ? DOUBLE : ANSI;
        m_ansiText.clear();
        m_ansiEscaped = false;
        return 0;
    }

    // The quoted text is gathered as it stands (a backslash keeps even a
    // quote from ending it) and decoded at the closing quote.
    int ansiQuoted(char c)
    {
        if (c == '\'' && !m_ansiEscaped) {
            m_value += decodeAnsiC(m_ansiText);
            m_state = VALUE;
            return 0;
        }
        m_ansiEscaped = c == '\\' && !m_ansiEscaped;
        m_ansiText += c;
        return 0;
    }

    int singleQuoted(char c)
    {
        if (c == '\'')
            m_state = VALUE;
        else
            m_value += c;
        return 0;
    }

    int doubleQuoted(char c)
    {
        if (c == '"') {
            m_state = VALUE;
            return 0;
        }
        if (c == '\\' && m_pos + 1 < m_in.size()) {
            char next = m_in[m_pos + 1];
            if (next == '\n') {
                ++m_pos;
                newPhysicalLine();
                return 0;
            }
            if (isDoubleQuoteEscapable(next)) {
                ++m_pos;
                ++m_lineLength;
                m_value += next;
                return 0;
            }
        }
        m_value += c;
        return 0;
    }

    int afterValue(char c)
    {
        if (c == '\n')
            return emit(true);
        if (isBlank(c) || c == '\r')
            return 0;
        if (c == '#') {
            m_state = TAIL_COMMENT;
            return 0;
        }
        return fail("unexpected text after the value of " + m_key);
    }

    int tailComment(char c)
    {
        if (c == '\n')
            return emit(true);
        return isControl(c) && c != '\r' ? unexpected(c) : 0;
    }

    int finish()
    {
        switch (m_state) {
        case LINE_START:
            return m_pos > m_lineStart ? emit(false) : 0;
        case COMMENT:
            return emit(false);
        case KEY:
        case EXPORT_GAP:
            return fail("expected '=' after '" + m_key + "'");
        case SINGLE:
            return failAt(m_quoteLine, "unterminated single-quoted value of " + m_key);
        case DOUBLE:
            return failAt(m_quoteLine, "unterminated double-quoted value of " + m_key);
        case ANSI:
            return failAt(m_quoteLine, "unterminated $'-quoted value of " + m_key);
        default:
            return emit(true);
        }
    }

    int emit(bool assignment)
    {
        m_lines.emplace_back();
        KQSShellLine& line = m_lines.back();
        size_t end = m_pos;
        line.text.assign(m_in, m_lineStart, end - m_lineStart);
        line.lineNumber = m_firstLine;
        line.isAssignment = assignment;
        if (assignment) {
            // Handed over: startLine() empties them anyway.
            line.key.swap(m_key);
            line.value.swap(m_value);
        }
        m_lineStart = end + 1;
        m_firstLine = m_physicalLine + (m_pos < m_in.size() ? 1 : 0);
        startLine();
        return 0;
    }

    void startLine()
    {
        m_state = LINE_START;
        m_key.clear();
        m_value.clear();
    }

    void newPhysicalLine()
    {
        ++m_physicalLine;
        m_lineLength = 0;
    }

    int unexpected(char c)
    {
        unsigned char byte = static_cast<unsigned char>(c);
        if (isControl(c) || byte >= 0x80) {
            char text[64];
            snprintf(text, sizeof text, "binary byte 0x%02x", byte);
            return fail(text);
        }
        return fail(std::string("unexpected character '") + c + "'");
    }

    int fail(const std::string& problem) { return failAt(m_physicalLine, problem); }

    int tooLong() { return fail("line longer than " + std::to_string(kMaxShellLineLength) + " bytes"); }

    int failAt(int line, const std::string& problem)
    {
        KQC::setErrorMessage("line %d: %s", line, problem.c_str());
        return -1;
    }

    const std::string& m_in;
    std::vector<KQSShellLine>& m_lines;
    State m_state = LINE_START;
    size_t m_pos = 0;
    size_t m_lineStart = 0;
    size_t m_lineLength = 0;
    int m_physicalLine = 1;
    int m_firstLine = 1;
    int m_quoteLine = 1;
    std::string m_key;
    std::string m_value;
    // The raw text of an open $'...' and whether its last byte escapes.
    std::string m_ansiText;
    bool m_ansiEscaped = false;
};

// The word splitter: the value rules of the file reader, words split at
// blanks.
class WordSplitter {
public:
    WordSplitter(const std::string& line, std::vector<std::string>& words) : m_in(line), m_words(words) {}

    int run()
    {
        for (m_pos = 0; m_pos < m_in.size(); ++m_pos) {
            char c = m_in[m_pos];
            if (c == '\0') {
                KQC::setErrorMessage("NUL byte in '%s'", m_in.c_str());
                return -1;
            }
            if (m_quote == 0 && startsComment(c))
                break;
            step(c);
        }
        if (m_quote != 0) {
            const char* kind = m_quote == '"' ? "double" : m_quote == '$' ? "$'" : "single";
            KQC::setErrorMessage("unterminated %s quote in '%s'", kind, m_in.c_str());
            return -1;
        }
        if (m_danglingBackslash) {
            // It escapes nothing: the line was cut off.
            KQC::setErrorMessage("trailing backslash in '%s'", m_in.c_str());
            return -1;
        }
        endWord();
        return 0;
    }

private:
    bool startsComment(char c) const { return c == '#' && !m_inWord; }

    void step(char c)
    {
        if (m_quote == '$') {
            ansiQuoted(c);
            return;
        }
        if (m_quote == '\'') {
            if (c == '\'')
                m_quote = 0;
            else
                m_word += c;
            return;
        }
        if (m_quote == '"') {
            if (c == '"')
                m_quote = 0;
            else if (c == '\\' && m_pos + 1 < m_in.size() && isDoubleQuoteEscapable(m_in[m_pos + 1]))
                m_word += m_in[++m_pos];
            else
                m_word += c;
            return;
        }
        if (isBlank(c) || c == '\n' || c == '\r') {
            endWord();
            return;
        }
        m_inWord = true;
        if (c == '$' && m_pos + 1 < m_in.size() && (m_in[m_pos + 1] == '\'' || m_in[m_pos + 1] == '"')) {
            m_quote = m_in[++m_pos] == '"' ? '"' : '$';
            m_ansiText.clear();
            m_ansiEscaped = false;
        } else if (c == '"' || c == '\'')
            m_quote = c;
        else if (c == '\\' && m_pos + 1 < m_in.size())
            m_word += m_in[++m_pos];
        else if (c == '\\')
            m_danglingBackslash = true;
        else
            m_word += c;
    }

    // As in the file reader: gathered raw, decoded at the closing quote.
    void ansiQuoted(char c)
    {
        if (c == '\'' && !m_ansiEscaped) {
            m_word += decodeAnsiC(m_ansiText);
            m_quote = 0;
            return;
        }
        m_ansiEscaped = c == '\\' && !m_ansiEscaped;
        m_ansiText += c;
    }

    void endWord()
    {
        if (m_inWord)
            m_words.push_back(m_word);
        m_word.clear();
        m_inWord = false;
    }

    const std::string& m_in;
    std::vector<std::string>& m_words;
    size_t m_pos = 0;
    char m_quote = 0;
    bool m_inWord = false;
    bool m_danglingBackslash = false;
    std::string m_word;
    std::string m_ansiText;
    bool m_ansiEscaped = false;
};

} // namespace

int KQSShellFile::parse(const std::string& text)
{
    std::vector<KQSShellLine> lines;
    lines.reserve(static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) + 1);
    ShellFileParser parser(text, lines);
    if (parser.run() != 0)
        return -1;
    m_lines.swap(lines);
    return 0;
}

int KQSShellFile::parse(std::istream& input)
{
    // In blocks: a byte at a time through the stream costs more than the
    // parse itself.
    std::string text;
    char block[8192];
    while (input.read(block, sizeof block) || input.gcount() > 0)
        text.append(block, static_cast<size_t>(input.gcount()));
    if (input.bad()) {
        KQC::setErrorMessage("can't read the configuration text");
        return -1;
    }
    return parse(text);
}

bool KQSShellFile::get(const std::string& key, std::string& value) const
{
    bool found = false;
    for (const KQSShellLine& line : m_lines)
        if (line.isAssignment && line.key == key) {
            value = line.value;
            found = true;
        }
    return found;
}

std::map<std::string, std::string> KQSShellFile::values() const
{
    std::map<std::string, std::string> result;
    for (const KQSShellLine& line : m_lines)
        if (line.isAssignment)
            result[line.key] = line.value;
    return result;
}

bool isValidShellKey(const std::string& key)
{
    if (key.empty() || !isKeyStart(key[0]))
        return false;
    for (char c : key)
        if (!isKeyChar(c))
            return false;
    return true;
}

std::string shellQuote(const std::string& value)
{
    std::string quoted = "\"";
    for (char c : value) {
        if (isDoubleQuoteEscapable(c))
            quoted += '\\';
        quoted += c;
    }
    return quoted + "\"";
}

int shellAssignment(const std::string& key, const std::string& value, std::string& line)
{
    if (!isValidShellKey(key)) {
        KQC::setErrorMessage("'%s' is not a valid variable name", key.c_str());
        return -1;
    }
    if (value.find('\0') != std::string::npos) {
        KQC::setErrorMessage("the value of %s holds a NUL byte", key.c_str());
        return -1;
    }
    line = key + "=" + shellQuote(value);
    return 0;
}

namespace {

const std::string* findValue(const std::vector<std::pair<std::string, std::string>>& pairs, const std::string& key)
{
    for (const auto& pair : pairs)
        if (pair.first == key)
            return &pair.second;
    return nullptr;
}

int writeAssignment(const std::string& key, const std::string& value, std::ostream& output)
{
    std::string line;
    if (shellAssignment(key, value, line) != 0)
        return -1;
    output << line << '\n';
    return 0;
}

// Kept lines are written with a newline after each. The last line of a file
// without one may end in a backslash that escapes nothing; followed by a
// newline it would join the next line, so such a line is written afresh.
int writeKeptLine(const KQSShellLine& line, std::ostream& output)
{
    if (line.isAssignment && !line.text.empty() && line.text.back() == '\\') {
        KQSShellFile alone;
        if (alone.parse(line.text + "\n") != 0 || alone.lines().size() != 1 || alone.lines()[0].value != line.value)
            return writeAssignment(line.key, line.value, output);
    }
    output << line.text << '\n';
    return 0;
}

int mergeIntoOld(const std::vector<std::pair<std::string, std::string>>& pairs, const KQSShellFile& old,
                 std::ostream& output, std::map<std::string, bool>& written)
{
    for (const KQSShellLine& line : old.lines()) {
        const std::string* value = line.isAssignment ? findValue(pairs, line.key) : nullptr;
        if (!value) {
            if (writeKeptLine(line, output) != 0)
                return -1;
            continue;
        }
        if (written[line.key])
            continue;
        if (writeAssignment(line.key, *value, output) != 0)
            return -1;
        written[line.key] = true;
    }
    return 0;
}

} // namespace

int writeShellFile(const std::vector<std::pair<std::string, std::string>>& pairs, std::ostream& output,
                   std::istream* old, bool keepOld)
{
    std::map<std::string, bool> written;
    if (keepOld && old) {
        KQSShellFile oldFile;
        if (oldFile.parse(*old) != 0) {
            std::string problem = KQC::getErrorMessage();
            KQC::setErrorMessage("can't parse the old configuration: %s", problem.c_str());
            return -1;
        }
        if (mergeIntoOld(pairs, oldFile, output, written) != 0)
            return -1;
    }
    for (const auto& pair : pairs) {
        if (written[pair.first])
            continue;
        if (writeAssignment(pair.first, pair.second, output) != 0)
            return -1;
        written[pair.first] = true;
    }
    if (!output) {
        KQC::setErrorMessage("can't write the configuration text");
        return -1;
    }
    return 0;
}

int splitShellWords(const std::string& line, std::vector<std::string>& words)
{
    std::vector<std::string> result;
    WordSplitter splitter(line, result);
    if (splitter.run() != 0)
        return -1;
    words.swap(result);
    return 0;
}

} // namespace KQS

namespace KQC {

int parseBashStr(const std::string& line, std::string& key, std::string& value)
{
    KQS::KQSShellFile file;
    if (file.parse(line) != 0)
        return -1;
    if (file.lines().size() != 1 || !file.lines()[0].isAssignment)
        return -1;
    key = file.lines()[0].key;
    value = file.lines()[0].value;
    return 0;
}

} // namespace KQC
