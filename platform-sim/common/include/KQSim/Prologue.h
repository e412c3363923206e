#pragma once
// What every simulated tool does first: record its call, then obey the
// fault rules.
//
// Calls log: ROOT/var/log/kqsim/calls.log gets the argument vector as one
// JSON array of strings on one line, the tool's bare name first.
//
// Fault rules: ROOT/etc/kqsim/faults, one per line "TOOL WORD EXIT [TEXT]".
// TOOL is a tool's bare name (or "*"); WORD is compared with the first
// argument that does not begin with "-" ("*" matches any run); EXIT is a
// number 0..255, "signal:N" or "sleep:S". TEXT is the rest of the line,
// with "\n" and "\\" standing for a newline and a backslash; it goes to
// standard error followed by a newline. The first matching rule wins.
// Blank lines and lines starting with "#" are skipped.
#include "KQSim/Host.h"

#include <string>
#include <vector>

namespace KQSim {

struct FaultRule {
    std::string tool;
    std::string word;
    enum class Kind { Exit, Signal, Sleep } kind = Kind::Exit;
    int number = 0;         // exit code or signal number
    double seconds = 0;     // for sleep
    std::string text;
};

// Parses one rule line; -1 with the message when it is malformed.
int parseFaultRule(const std::string& line, FaultRule& rule);
// "EXIT" text check for "kqsim fault": 0 when valid.
int parseFaultExit(const std::string& exitText, FaultRule& rule);
// The rule as a line of the faults file (no newline).
std::string formatFaultRule(const FaultRule& rule);

// The word the rules are matched against: the first argument (after the
// tool name) not beginning with "-", or "" when there is none.
std::string faultWord(const std::vector<std::string>& arguments);

// Runs the prologue for a tool invoked with argv. Returns 0 when the tool
// goes on with its work (after a sleep rule too), or 1 when it must exit
// at once with *exitCode (a fault rule, or no usable host root — then the
// message is already on standard error). A signal rule does not return.
int runToolPrologue(int argc, char** argv, SimHost& host, int* exitCode);

// The bare name of argv[0].
std::string toolName(const char* argv0);

} // namespace KQSim
