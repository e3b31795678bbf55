// The forward rows of the BT.709 space (space 2) without table lookups.
//
// The nine RGB rows of that space are double expressions, rounded by adding one half
// and truncating toward zero. Each row is nonetheless, entry for entry, of the form
//
//     row[x] = c + k * x + ((f * x + 16384) >> 15) + e * (x != 0)
//
// with a 16-bit f and e of 0 or 1 (e is 1 on the rows of negative slope: truncation
// toward zero rounds their entries up from 1 on, while the entry at 0 is 0). The term
// (f * x + 16384) >> 15 is the rounding 16-bit fixed-point multiply of the vector units,
// so a row costs one such multiply and a 16-bit pair multiply-add for k * x. The
// decomposition is derived from the tables and checked against all 256 entries of each
// row; where a row has no such form the vector rows keep reading the tables.
#pragma once

#include <cstdint>

namespace kelp {
namespace cscrows {

struct ExactRow {
    int32_t c; // the entry at 0
    int32_t k;
    int16_t f;
    int16_t e; // 0 or 1
};

// The three outputs (Y, Cb, Cr), each from its R, G and B rows, in the table's order.
struct ExactForward {
    ExactRow rows[9];
};

// One row of 256 entries in the form above, or false.
bool DeriveExactRow(const int32_t* row, ExactRow* out);

// All nine rows of `rgbYcc`, or false if one has no such form or if a sum of three rows
// shifted by 16 can reach the indices -256 or 511, where the limit tables hold 0 rather
// than their bounds.
bool DeriveExactForward(const int32_t* rgbYcc, ExactForward* out);

// The decomposition of the rows of space 2, derived on the first call and kept (those
// tables never change once built). Null if `rgbYcc` is not the rows of that first call,
// or if they have no such form.
const ExactForward* ExactForwardOf(const int32_t* rgbYcc);

// The value of a row in the form above, as the vector rows compute it.
inline int32_t ExactEntry(const ExactRow& r, int x) {
    return r.c + r.k * x + ((int32_t(r.f) * x + 16384) >> 15) + (x != 0 ? r.e : 0);
}

} // namespace cscrows
} // namespace kelp
