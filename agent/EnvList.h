#pragma once
// A list of environments as the console prints it: in JSON mode an array of
// environment objects written one by one; in the readable form a table in
// VEID order with the state and transition as words.
#include "Console.h"

#include "KQC/Env.h"

#include <ostream>

namespace kqagent {

// Makes `envs` the streamed "envs" field of `outcome`.
void streamEnvs(Outcome& outcome, const KQC::KQCEnvVector& envs);

// The readable table of `envs`; columns fit the widest cell (counted in
// code points), control characters are shown as '?'.
void printEnvTable(std::ostream& out, const KQC::KQCEnvVector& envs);

// The word of an environment state ("running"), or its number.
std::string stateWord(int state);
// The name of a transition in progress ("starting"), "" for none.
std::string transitionWord(int transition);

} // namespace kqagent
