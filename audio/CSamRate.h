// Internal view of the fixed-ratio resampler's shared tables, for the tests.
#pragma once

#include <kelp/samrate.h>

#include <cstdint>

namespace kelp {
namespace samrate {

// Rate indices of a mode, source first.
struct ModeRates {
    uint32_t src;
    uint32_t dst;
};
ModeRates RatesOf(int mode); // mode 0 to 13

// A copy of one mode's table pointers and instance count, read under the table lock.
struct SharedView {
    int32_t instances;
    const double* alpha; // L + 1 entries
    const double* cm1;   // L entries each
    const double* c0;
    const double* cp1;
    uint32_t length; // L, the phases of the destination rate
};
SharedView PeekShared(int mode);

// Makes the nth table allocation from now fail (1 = the next one); 0 turns it off.
void FailTableAllocation(int nth);

} // namespace samrate
} // namespace kelp
