// Running a test once per vector target: every target this machine can run, the plain
// loop first, each alone (the target mask of runtime/cpuflags narrowed to it).
//
//   kelptest::ForEachSimdTarget([&](int target) {
//       const Kernels& k = Current(); // the table of `target`
//       ... compare with the plain loop ...
//   });
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "runtime/cpuflags.h"

namespace kelptest {

// The targets to test on this machine, plain first.
inline std::vector<int> SimdTargetsToTest() {
    std::vector<int> targets;
    const uint32_t have = kelp::SimdTargetsAvailable();
    for (int t = kelp::kSimdPlain; t < kelp::kSimdTargetCount; ++t)
        if (have & kelp::SimdBit(t)) targets.push_back(t);
    return targets;
}

// Allows only the targets of `mask` (plain always stays) while it lives.
class SimdMask {
public:
    explicit SimdMask(uint32_t mask) : m_old(kelp::MaskSimdTargets(mask)) {}
    ~SimdMask() { kelp::MaskSimdTargets(m_old); }
    SimdMask(const SimdMask&) = delete;
    SimdMask& operator=(const SimdMask&) = delete;

private:
    uint32_t m_old;
};

// Calls f(target) once per target of SimdTargetsToTest, with that target alone allowed
// (so BestSimdTarget() is `target`) and its name in every failure message.
template <class F> void ForEachSimdTarget(F&& f) {
    for (int t : SimdTargetsToTest()) {
        SimdMask only(kelp::SimdBit(t));
        SCOPED_TRACE(std::string("target ") + kelp::SimdTargetName(t));
        f(t);
    }
}

} // namespace kelptest
