#pragma once
// Load averages of a host or an environment.
//
// The kernel hands each value over as an integer part and a hundredths
// part; the value is their sum (2 and 5 make 2.05).
// Value type; thread safety as for any value.
namespace KQC {

struct KQCLoadAvg {
    // 1, 5 and 15 minutes.
    double avg[3] = {0.0, 0.0, 0.0};

    static double fromParts(int integer, int hundredths) { return integer + 0.01 * hundredths; }
};

} // namespace KQC
