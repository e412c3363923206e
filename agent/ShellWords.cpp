#include "ShellWords.h"

namespace kqagent {
namespace {

enum class State { Blank, Word, Single, Double };

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool escapableInDouble(char c) { return c == '"' || c == '\\' || c == '$' || c == '`'; }

} // namespace

int splitShellWords(const std::string& line, std::vector<std::string>& words, std::string& error)
{
    State state = State::Blank;
    std::string word;
    for (size_t i = 0; i < line.size(); ++i) {
        char c = line[i];
        switch (state) {
        case State::Blank:
            if (isBlank(c))
                break;
            state = State::Word;
            [[fallthrough]];  // this character starts the word
        case State::Word:
            if (isBlank(c)) {
                words.push_back(word);
                word.clear();
                state = State::Blank;
            } else if (c == '\'') {
                state = State::Single;
            } else if (c == '"') {
                state = State::Double;
            } else if (c == '\\') {
                if (i + 1 >= line.size()) {
                    error = "trailing backslash";
                    return -1;
                }
                word += line[++i];
            } else {
                word += c;
            }
            break;
        case State::Single:
            if (c == '\'')
                state = State::Word;
            else
                word += c;
            break;
        case State::Double:
            if (c == '"')
                state = State::Word;
            else if (c == '\\' && i + 1 < line.size() && escapableInDouble(line[i + 1]))
                word += line[++i];
            else
                word += c;
            break;
        }
    }
    if (state == State::Single || state == State::Double) {
        error = "unbalanced quote";
        return -1;
    }
    if (state == State::Word)
        words.push_back(word);
    return 0;
}

} // namespace kqagent
