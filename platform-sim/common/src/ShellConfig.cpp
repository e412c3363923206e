#include "KQSim/ShellConfig.h"

#include "KQSim/Fs.h"

#include "KQC/Error.h"

#include <cctype>

namespace KQSim {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }
bool isNameStart(char c) { return std::isalpha(static_cast<unsigned char>(c)) || c == '_'; }
bool isNameChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; }

// Reads one shell line (a statement that may span physical lines inside
// quotes) starting at `at`; fills the assignments found in it.
class StatementReader {
public:
    StatementReader(const std::string& text, size_t at) : m_text(text), m_at(at) {}

    // 0 with the end position in next(), -1 on a quoting error.
    int read(std::vector<std::pair<std::string, std::string>>& assignments)
    {
        for (;;) {
            skipBlanks();
            if (atEnd())
                return 0;
            char c = m_text[m_at];
            if (c == '\n') {
                ++m_at;
                return 0;
            }
            if (c == '#') {
                skipToLineEnd();
                continue;
            }
            if (c == ';') {
                ++m_at;
                continue;
            }
            std::string key;
            if (!readAssignmentStart(key)) {
                // Not an assignment: the whole line is kept and ignored.
                skipToLineEnd();
                continue;
            }
            std::string value;
            if (readWord(value) != 0)
                return -1;
            assignments.emplace_back(key, value);
        }
    }

    size_t next() const { return m_at; }

private:
    bool atEnd() const { return m_at >= m_text.size(); }
    void skipBlanks()
    {
        while (!atEnd() && isBlank(m_text[m_at]))
            ++m_at;
    }
    void skipToLineEnd()
    {
        while (!atEnd() && m_text[m_at] != '\n')
            ++m_at;
    }

    bool readAssignmentStart(std::string& key)
    {
        size_t start = m_at;
        if (m_text.compare(m_at, 7, "export ") == 0) {
            m_at += 7;
            skipBlanks();
        }
        size_t nameStart = m_at;
        if (atEnd() || !isNameStart(m_text[m_at])) {
            m_at = start;
            return false;
        }
        while (!atEnd() && isNameChar(m_text[m_at]))
            ++m_at;
        if (atEnd() || m_text[m_at] != '=') {
            m_at = start;
            return false;
        }
        key = m_text.substr(nameStart, m_at - nameStart);
        ++m_at;
        return true;
    }

    int readWord(std::string& value)
    {
        while (!atEnd()) {
            char c = m_text[m_at];
            if (isBlank(c) || c == '\n' || c == ';')
                return 0;
            if (c == '"') {
                if (readDoubleQuoted(value) != 0)
                    return -1;
            } else if (c == '\'') {
                if (readSingleQuoted(value) != 0)
                    return -1;
            } else if (c == '\\') {
                readUnquotedEscape(value);
            } else {
                value += c;
                ++m_at;
            }
        }
        return 0;
    }

    int readDoubleQuoted(std::string& value)
    {
        size_t open = m_at++;
        while (!atEnd()) {
            char c = m_text[m_at++];
            if (c == '"')
                return 0;
            if (c != '\\' || atEnd()) {
                value += c;
                continue;
            }
            char escaped = m_text[m_at];
            if (escaped == '\n') {
                ++m_at;  // line continuation: both characters vanish
            } else if (escaped == '\\' || escaped == '"' || escaped == '$' || escaped == '`') {
                value += escaped;
                ++m_at;
            } else {
                value += '\\';  // bash keeps other backslashes inside double quotes
            }
        }
        return unterminated("double", open);
    }

    int readSingleQuoted(std::string& value)
    {
        size_t open = m_at++;
        size_t close = m_text.find('\'', m_at);
        if (close == std::string::npos)
            return unterminated("single", open);
        value.append(m_text, m_at, close - m_at);
        m_at = close + 1;
        return 0;
    }

    void readUnquotedEscape(std::string& value)
    {
        ++m_at;
        if (atEnd())
            return;
        if (m_text[m_at] != '\n')
            value += m_text[m_at];
        ++m_at;
    }

    int unterminated(const char* kind, size_t open)
    {
        size_t line = 1;
        for (size_t i = 0; i < open; ++i)
            line += m_text[i] == '\n';
        KQC::setErrorMessage("unterminated %s quote on line %zu", kind, line);
        return -1;
    }

    const std::string& m_text;
    size_t m_at;
};

} // namespace

std::string toolEscaped(const std::string& value)
{
    std::string out;
    for (char c : value) {
        if (c == '\\' || c == '"' || c == '$' || c == '`')
            out += '\\';
        out += c;
    }
    return out;
}

bool isToolEscapedKey(const std::string& key) { return key == "NAME" || key == "DESCRIPTION"; }

std::string shellQuote(const std::string& value)
{
    std::string out = "\"";
    for (char c : value) {
        if (c == '\\' || c == '"' || c == '$' || c == '`')
            out += '\\';
        out += c;
    }
    out += '"';
    return out;
}

int ShellConfig::parse(const std::string& text)
{
    std::vector<Statement> statements;
    size_t at = 0;
    while (at < text.size()) {
        Statement statement;
        StatementReader reader(text, at);
        if (reader.read(statement.assignments) != 0)
            return -1;
        statement.raw = text.substr(at, reader.next() - at);
        at = reader.next();
        statements.push_back(std::move(statement));
    }
    m_statements.swap(statements);
    return 0;
}

int ShellConfig::load(const std::string& path)
{
    std::string text;
    if (readFile(path, text) != 0)
        return -1;
    if (parse(text) != 0) {
        std::string reason = KQC::getErrorMessage();
        KQC::setErrorMessage("parse '%s': %s", path.c_str(), reason.c_str());
        return -1;
    }
    return 0;
}

int ShellConfig::save(const std::string& path) const
{
    return writeFileAtomic(path, text());
}

bool ShellConfig::has(const std::string& key) const
{
    for (const Statement& statement : m_statements)
        for (const auto& assignment : statement.assignments)
            if (assignment.first == key)
                return true;
    return false;
}

std::string ShellConfig::get(const std::string& key, const std::string& fallback) const
{
    const std::string* found = nullptr;
    for (const Statement& statement : m_statements)
        for (const auto& assignment : statement.assignments)
            if (assignment.first == key)
                found = &assignment.second;
    return found ? *found : fallback;
}

void ShellConfig::set(const std::string& key, const std::string& value)
{
    bool placed = false;
    for (Statement& statement : m_statements) {
        auto& list = statement.assignments;
        for (auto it = list.begin(); it != list.end();) {
            if (it->first != key) {
                ++it;
                continue;
            }
            statement.changed = true;
            if (!placed) {
                it->second = value;
                placed = true;
                ++it;
            } else {
                it = list.erase(it);
            }
        }
    }
    if (!placed) {
        Statement statement;
        statement.assignments.emplace_back(key, value);
        statement.changed = true;
        m_statements.push_back(std::move(statement));
    }
}

void ShellConfig::unset(const std::string& key)
{
    for (Statement& statement : m_statements) {
        auto& list = statement.assignments;
        for (auto it = list.begin(); it != list.end();) {
            if (it->first == key) {
                it = list.erase(it);
                statement.changed = true;
            } else {
                ++it;
            }
        }
    }
}

std::vector<std::pair<std::string, std::string>> ShellConfig::values() const
{
    std::vector<std::pair<std::string, std::string>> result;
    for (const Statement& statement : m_statements)
        for (const auto& assignment : statement.assignments) {
            bool seen = false;
            for (auto& known : result)
                if (known.first == assignment.first) {
                    known.second = assignment.second;
                    seen = true;
                }
            if (!seen)
                result.push_back(assignment);
        }
    return result;
}

std::string ShellConfig::text() const
{
    std::string out;
    for (const Statement& statement : m_statements) {
        if (!statement.changed) {
            out += statement.raw;
            continue;
        }
        if (!out.empty() && out.back() != '\n')
            out += '\n';
        for (const auto& assignment : statement.assignments)
            out += assignment.first + "=" + shellQuote(assignment.second) + "\n";
    }
    return out;
}

} // namespace KQSim
