// The 2-D transform: moves and scales one image over a background, with an opacity, a
// softness on each axis and sub-pixel edges, in 32-bit RGB, meshed YUV 4:4:4 and YUV
// 4:2:2, a whole frame or one field at a time.
//
// Result codes of every entry: 0 done (also for a target without pixels), 20 out of
// memory, 25 another failure in the raster stage, 27 formats refused, 49 a target format
// that no raster path serves.
#pragma once

#include <cstddef>

#include "kelpdefs.h"
#include "kxbih.h"

namespace stdfx2d {

// The effect's parameters. The layout is fixed: the record crosses module boundaries.
typedef struct tagFX2DPARAM {
    uint32_t size;       // 48, the size of the record; not read
    uint32_t reserved;   // aligns the doubles; not read
    double scaleX;       // target pixels per source pixel; 1.0 is unchanged
    double scaleY;       // the same, vertically
    double offsetX;      // shift of the image centre, in target widths; positive moves right
    double offsetY;      // in target heights; positive moves up on the screen
    double transparency; // per cent: 0 opaque, 100 invisible; clamped to 0..100
} FX2DPARAM;

// The resampling choice.
typedef struct tagFX2DQUALITY {
    int32_t mode;       // 0 nearest, 2 soft, any other value (1) the fast filter
    int32_t useFilter;  // not 0: filterKind and filterBits are applied
    int32_t filterKind; // kernel number of CFilter
    int32_t filterBits; // significant weight bits of the fast filter, 0..6; 0 is nearest
    double softnessX;   // per cent, 0..100: stretches the kernel by 1 + softness * 0.99
    double softnessY;
} FX2DQUALITY;

static_assert(sizeof(FX2DPARAM) == 48 && offsetof(FX2DPARAM, scaleX) == 8 &&
                  offsetof(FX2DPARAM, transparency) == 40,
              "FX2DPARAM layout");
static_assert(sizeof(FX2DQUALITY) == 32 && offsetof(FX2DQUALITY, filterBits) == 12 &&
                  offsetof(FX2DQUALITY, softnessX) == 16 && offsetof(FX2DQUALITY, softnessY) == 24,
              "FX2DQUALITY layout");

// The resampling modes.
constexpr int FX2D_MODE_NEAREST = 0;
constexpr int FX2D_MODE_FILTER = 1;
constexpr int FX2D_MODE_SOFT = 2;

// The result codes.
constexpr int FX2D_OK = 0;
constexpr int FX2D_OUTOFMEMORY = 20;
constexpr int FX2D_FAILED = 25;
constexpr int FX2D_BADFORMAT = 27;
constexpr int FX2D_NOPATH = 49;

// `sources` is a list of up to three records that ends at the first null: the image that
// is moved and scaled, its background, and a further picture under the background.
// `sourceBits` runs beside it. `field` -1 renders the whole frame, 0 or 1 only that field
// of the target (every second row), leaving the other rows as they are.
KELP_API int Fx2d(KXBMINFOHEADER* target, void* targetBits, KXBMINFOHEADER* const* sources,
                  void* const* sourceBits, const FX2DPARAM& param, int field, int mode);
KELP_API int Fx2d(KXBMINFOHEADER* target, void* targetBits, KXBMINFOHEADER* source,
                  void* sourceBits, const FX2DPARAM& param, int field, int mode);
KELP_API int Fx2d(KXBMINFOHEADER* target, void* targetBits, KXBMINFOHEADER* source,
                  void* sourceBits, KXBMINFOHEADER* background, void* backgroundBits,
                  const FX2DPARAM& param, int field, int mode);
KELP_API int Fx2d(KXBMINFOHEADER* target, void* targetBits, KXBMINFOHEADER* const* sources,
                  void* const* sourceBits, const FX2DPARAM& param, const FX2DQUALITY& quality,
                  int field);
KELP_API int Fx2d(KXBMINFOHEADER* target, void* targetBits, KXBMINFOHEADER* source,
                  void* sourceBits, const FX2DPARAM& param, const FX2DQUALITY& quality, int field);
KELP_API int Fx2d(KXBMINFOHEADER* target, void* targetBits, KXBMINFOHEADER* source,
                  void* sourceBits, KXBMINFOHEADER* background, void* backgroundBits,
                  const FX2DPARAM& param, const FX2DQUALITY& quality, int field);

} // namespace stdfx2d
