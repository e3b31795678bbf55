// The toolkit's row copy and row fill. Every copy of pixel rows and every fill by a
// 32-bit word goes through these two; they pick the fastest path the processor allows,
// and every path gives the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace stdfx {

void CopyRow(void* dst, const void* src, size_t bytes);
// `count` 32-bit words of `value`, written as little-endian bytes; dst need not be
// aligned.
void FillRow32(void* dst, uint32_t value, size_t count);

namespace plain {
void CopyRow(void* dst, const void* src, size_t bytes);
void FillRow32(void* dst, uint32_t value, size_t count);
} // namespace plain

} // namespace stdfx
