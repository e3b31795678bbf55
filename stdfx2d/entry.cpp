// The exported entries of the 2-D transform: each builds the list of images, sets up
// one CFx2d on the stack and runs its guarded transform.
#include <kelp/stdfx2d.h>

#include "stdfx2d/fx2d.h"

namespace stdfx2d {

int Fx2d(KXBMINFOHEADER* target, void* targetBits, KXBMINFOHEADER* const* sources,
         void* const* sourceBits, const FX2DPARAM& param, int field, int mode) {
    CFx2d fx(mode);
    return fx.Transform(target, targetBits, sources, sourceBits, param, 1, 0, field);
}

int Fx2d(KXBMINFOHEADER* target, void* targetBits, KXBMINFOHEADER* source, void* sourceBits,
         const FX2DPARAM& param, int field, int mode) {
    KXBMINFOHEADER* list[2] = {source, nullptr};
    void* bits[2] = {sourceBits, nullptr};
    return Fx2d(target, targetBits, list, bits, param, field, mode);
}

int Fx2d(KXBMINFOHEADER* target, void* targetBits, KXBMINFOHEADER* source, void* sourceBits,
         KXBMINFOHEADER* background, void* backgroundBits, const FX2DPARAM& param, int field,
         int mode) {
    KXBMINFOHEADER* list[3] = {source, background, nullptr};
    void* bits[3] = {sourceBits, backgroundBits, nullptr};
    return Fx2d(target, targetBits, list, bits, param, field, mode);
}

int Fx2d(KXBMINFOHEADER* target, void* targetBits, KXBMINFOHEADER* const* sources,
         void* const* sourceBits, const FX2DPARAM& param, const FX2DQUALITY& quality, int field) {
    CFx2d fx(quality.mode);
    if (quality.useFilter != 0) fx.SetFilter(quality.filterKind, quality.filterBits);
    fx.SetSoftnessX(quality.softnessX);
    fx.SetSoftnessY(quality.softnessY);
    return fx.Transform(target, targetBits, sources, sourceBits, param, 1, 0, field);
}

int Fx2d(KXBMINFOHEADER* target, void* targetBits, KXBMINFOHEADER* source, void* sourceBits,
         const FX2DPARAM& param, const FX2DQUALITY& quality, int field) {
    KXBMINFOHEADER* list[2] = {source, nullptr};
    void* bits[2] = {sourceBits, nullptr};
    return Fx2d(target, targetBits, list, bits, param, quality, field);
}

int Fx2d(KXBMINFOHEADER* target, void* targetBits, KXBMINFOHEADER* source, void* sourceBits,
         KXBMINFOHEADER* background, void* backgroundBits, const FX2DPARAM& param,
         const FX2DQUALITY& quality, int field) {
    KXBMINFOHEADER* list[3] = {source, background, nullptr};
    void* bits[3] = {sourceBits, backgroundBits, nullptr};
    return Fx2d(target, targetBits, list, bits, param, quality, field);
}

} // namespace stdfx2d
