// What the test trace sink received. The sink is a shared library of its own, loaded by
// kelp through KELP_TRACE_SINK exactly as a host's sink would be.
#pragma once

#include <string>
#include <vector>

namespace kelptest {

struct TraceLine {
    unsigned area;
    unsigned level;
    std::wstring text;
};

__attribute__((visibility("default"))) void SinkClear();
__attribute__((visibility("default"))) std::vector<TraceLine> SinkLines();
// All received text of one area, concatenated in order.
__attribute__((visibility("default"))) std::wstring SinkText(unsigned area = 8);
// Which levels the sink reports as active for every area (bit n for level n).
__attribute__((visibility("default"))) void SinkSetLevelMask(unsigned mask);
// How many times the sink's print entry was called.
__attribute__((visibility("default"))) unsigned SinkPrintCount();

} // namespace kelptest
