#pragma once
// Printing an outcome: one JSON object per command in JSON mode, readable
// text otherwise. Errors of the readable form go to standard error.
#include "Console.h"

namespace kqagent {

void printOutcome(const Outcome& outcome, bool json);
// A usage error: one line on standard error; in JSON mode also an object
// (rc 2) on standard output, so that a batch keeps one object per line.
void printUsageError(const std::string& text, bool json);
// A failure before any command could run (no host root, no plug-in): one
// line on standard error; in JSON mode also an object with rc 1.
void printStartupError(const std::string& text, bool json);

} // namespace kqagent
