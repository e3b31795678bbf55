// The readability probe's ways of asking, each on its own, so that tests can run every
// one of them. Internal to the platform layer; callers use os::IsReadable.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kelp {
namespace os {
namespace probe {

// Answers of the ways that may not know.
constexpr int kNo = 0;
constexpr int kYes = 1;
constexpr int kUnknown = -1;

// All take a range that is not empty and does not wrap around the address space.
int ByMapQuery(uintptr_t start, size_t size); // the kernel's mapping query
int ByMapsText(uintptr_t start, size_t size); // the text of /proc/self/maps
bool ByPages(uintptr_t start, size_t size);   // the pages themselves; always knows

} // namespace probe
} // namespace os
} // namespace kelp
