#pragma once
// Splitting a batch line into words the way a shell would for plain
// commands: blanks separate words; single quotes keep everything; double
// quotes keep everything but \" \\ \$ \` escapes; a backslash outside
// quotes keeps the next character.
#include <string>
#include <vector>

namespace kqagent {

// 0 with the words, or -1 with `error` set (unbalanced quote, trailing
// backslash).
int splitShellWords(const std::string& line, std::vector<std::string>& words, std::string& error);

} // namespace kqagent
