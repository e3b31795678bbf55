// The exported entries of the 2-D transform.
#include <kelp/stdfx2d.h>

namespace stdfx2d {

int Fx2d(KXBMINFOHEADER* target, void* targetBits, KXBMINFOHEADER* const* sources,
         void* const* sourceBits, const FX2DPARAM& param, int field, int mode) {
    (void)target, (void)targetBits, (void)sources, (void)sourceBits, (void)param, (void)field,
        (void)mode;
    return FX2D_FAILED;
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
    return Fx2d(target, targetBits, sources, sourceBits, param, field, quality.mode);
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
