// The plain row copy and fill, which define the result of every faster path.
#include "dibrows.h"

#include <cstring>

namespace stdfx {

namespace plain {

void CopyRow(void* dst, const void* src, size_t bytes) {
    if (bytes) std::memmove(dst, src, bytes);
}

void FillRow32(void* dst, uint32_t value, size_t count) {
    auto* d = static_cast<unsigned char*>(dst);
    const unsigned char b[4] = {
        static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
        static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
    for (size_t i = 0; i < count; ++i, d += 4)
        std::memcpy(d, b, 4);
}

} // namespace plain

void CopyRow(void* dst, const void* src, size_t bytes) {
    plain::CopyRow(dst, src, bytes);
}
void FillRow32(void* dst, uint32_t value, size_t count) {
    plain::FillRow32(dst, value, count);
}

} // namespace stdfx
