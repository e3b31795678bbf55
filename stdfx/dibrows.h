// The toolkit's row copy and row fill. Every copy of pixel rows and every fill by a
// 32-bit word goes through these two; they take the best vector form the processor
// allows (rowkernels), and every form gives the same bytes. Copies never overlap.
#pragma once

#include <cstddef>
#include <cstdint>

#include "rowkernels.h"

namespace stdfx {

inline void CopyRow(void* dst, const void* src, size_t bytes) {
    rowkernels::Current().copy(static_cast<uint8_t*>(dst), static_cast<const uint8_t*>(src), bytes);
}

// `count` 32-bit words of `value`, written as little-endian bytes; dst need not be
// aligned.
inline void FillRow32(void* dst, uint32_t value, size_t count) {
    rowkernels::Current().fill32(static_cast<uint8_t*>(dst), value, count);
}

} // namespace stdfx
