// The toolkit's row kernels: the row copy and the 32-bit fill of CDIB, and the colour
// steps of the translators over canonical rows (BGRA bytes, Y U V A bytes).
//
// The plain loops (suffix _C, rowkernels.cpp) define every result. The vector forms
// (rowkernels_simd.cpp, one per vector target) do whole vectors and leave the rest of a
// run to the plain loop. Source and destination never overlap.
#pragma once

#include <cstddef>
#include <cstdint>

namespace stdfx {
namespace rowkernels {

// The tables of a colour step. The vector forms compute with the tables' factors and
// need `linear`: every table row is t[i] = t[0] + (t[1] - t[0]) i and the clamp or limit
// table is the standard one (16..240 for chroma, 0..255 for colour), so that the sum of
// table entries equals the sum of products and the clamp a Min and Max. Without it they
// run the plain loop.
struct ColourTables {
    const int32_t* table; // the translator's table
    const int32_t* clamp; // the 768-entry chroma clamp or colour limit, from element 0
    bool cut;             // Y - 16 first (limited-range YUV to RGB)
    bool linear;
};

typedef void (*CopyFn)(uint8_t* dst, const uint8_t* src, size_t bytes);
typedef void (*FillFn)(uint8_t* dst, uint32_t value, size_t words);
typedef void (*ColourFn)(const uint8_t* src, uint8_t* dst, int32_t pixels, const ColourTables& t);

// One-plane 4:2:2 rows and Y U V A pixels; `alpha` is the row of the alpha plane of a
// 32-bit image, or null (read as 255, not written).
typedef void (*Read422Fn)(const uint8_t* row, const uint8_t* alpha, uint8_t* yuva, int32_t pixels);
typedef void (*Write422Fn)(const uint8_t* yuva, uint8_t* row, uint8_t* alpha, int32_t pixels);

struct Kernels {
    const char* name; // the target's name, SimdTargetName
    CopyFn copy;
    // `words` little-endian copies of value; dst need not be aligned.
    FillFn fill32;
    // BGRA to Y U V A with the nine rows of a CRGB2YUV table: Y as it comes (low byte),
    // U and V through the chroma clamp, alpha kept.
    ColourFn bgraToYuva;
    // Y U V A to BGRA with the five rows of a CYUV2RGB table and its limit; alpha 255.
    ColourFn yuvaToBgra;
    // 4:2:2 to Y U V A: the even pixel of a pair takes the pair's chroma, the odd pixel
    // the rounded-up mean of its pair's and the next pair's; the last pair repeats its
    // own. Y U Y V (sampling 0) and U Y V Y (512).
    Read422Fn readYuyv;
    Read422Fn readUyvy;
    // Y U V A to 4:2:2: each pair takes the chroma of its even pixel; the last pixel of
    // an odd run fills its pair alone.
    Write422Fn writeYuyv;
    Write422Fn writeUyvy;
};

const Kernels& PlainKernels();
// The table of a vector target (kelp::SimdTarget); a target not compiled gives the best
// one below it, at worst the plain table.
const Kernels& ForTarget(int target);
// ForTarget(BestSimdTarget()).
const Kernels& Current();

void Copy_C(uint8_t* dst, const uint8_t* src, size_t bytes);
void Fill32_C(uint8_t* dst, uint32_t value, size_t words);
void BgraToYuva_C(const uint8_t* src, uint8_t* dst, int32_t pixels, const ColourTables& t);
void YuvaToBgra_C(const uint8_t* src, uint8_t* dst, int32_t pixels, const ColourTables& t);
void ReadYuyv_C(const uint8_t* row, const uint8_t* alpha, uint8_t* yuva, int32_t pixels);
void ReadUyvy_C(const uint8_t* row, const uint8_t* alpha, uint8_t* yuva, int32_t pixels);
void WriteYuyv_C(const uint8_t* yuva, uint8_t* row, uint8_t* alpha, int32_t pixels);
void WriteUyvy_C(const uint8_t* yuva, uint8_t* row, uint8_t* alpha, int32_t pixels);

// True if rows 0..rows-1 of 256 entries are each linear in their index.
bool LinearRows(const int32_t* table, int rows);
// True if the sum of three linear rows from `row`, shifted by 16, stays within lo..hi
// for every byte value of the three.
bool RowSumsWithin(const int32_t* table, int row, int32_t lo, int32_t hi);
// True if a 768-entry table read from element 256 holds every index to lo..hi.
bool StandardClamp(const int32_t* table, int32_t lo, int32_t hi);

// The vector table of a target, or null where none was compiled (rowkernels_simd.cpp).
const Kernels* VectorKernels(int target);

} // namespace rowkernels
} // namespace stdfx
