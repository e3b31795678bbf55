// What the run-length mattes need from the rest of the library when they are built
// alone for fuzzing: the heap and the image blocks (the C library's heap here, so that
// AddressSanitizer guards each block to its byte rather than to its page), the plain
// row kernels only, and the image operations that live in other files, which the fuzz
// target never calls.
#include <cstdlib>

#include <kelp/mpheap.h>
#include <kelp/stdfx_dib.h>
#include <kelp/stdfx_translate.h>

#include "runtime/cpuflags.h"
#include "runtime/kelpos.h"
#include "stdfx/rlescan.h"
#include "stdfx/rowkernels.h"

namespace kelp {
void* NewAlloc(size_t size, const nothrow_t&) {
    return std::malloc(size ? size : 1);
}
void NewFree(void* p) {
    std::free(p);
}
namespace os {
void* PageAlloc(size_t size) {
    return std::calloc(size ? size : 1, 1);
}
bool PageFree(void* base) {
    std::free(base);
    return true;
}
} // namespace os
int BestSimdTarget() {
    return kSimdPlain;
}
const wchar_t* DIBFormatName(const KXBMINFOHEADER*) {
    return L"";
}
} // namespace kelp

namespace stdfx {
namespace rowkernels {
const Kernels* VectorKernels(int) {
    return nullptr;
}
} // namespace rowkernels
namespace rlescan {
const Kernels* VectorKernels(int) {
    return nullptr;
}
} // namespace rlescan

CRGB2YUV* GetRGB2YUV() {
    return nullptr;
}
CYUV2RGB* GetYUV2RGB() {
    return nullptr;
}
CRGB2RGB* GetRGB2RGB() {
    return nullptr;
}
CYUV2YUV* GetYUV2YUV() {
    return nullptr;
}

bool CDIB::CreateFieldExpanded(const CDIB&, unsigned, int) {
    return false;
}
bool CDIB::DeinterlaceTemporal(const CDIB&, const CDIB&, const CDIB&, int, int, int) {
    return false;
}
bool CDIB::Deinterlace(const CDIB&, int, int, int) {
    return false;
}
bool CDIB::CreateDeinterlacedTemporal(const CDIB&, const CDIB&, const CDIB&, int, int, int) {
    return false;
}
bool CDIB::CreateDeinterlaced(const CDIB&, int, int, int) {
    return false;
}
bool CDIB::CopyCentred(const CDIB&, const CDIB&, int) {
    return false;
}
bool CDIB::CopyCentred(const CDIB&, int) {
    return false;
}
bool CDIB::CopyCentredRGB(const CDIB&, const CDIB&, int) {
    return false;
}
bool CDIB::CopyCentredRGBPlain(const CDIB&, int) {
    return false;
}
bool CDIB::CopyCentred444(const CDIB&, const CDIB&, int) {
    return false;
}
bool CDIB::CopyCentred444Plain(const CDIB&, int) {
    return false;
}
bool CDIB::CopyCentred422(const CDIB&, const CDIB&, int) {
    return false;
}
bool CDIB::CopyCentred422Plain(const CDIB&, int) {
    return false;
}
bool CDIB::Compose(const CDIB&, int, int) {
    return false;
}
bool CDIB::BlendTwo(const CDIB&, int, int) {
    return false;
}
bool CDIB::BlendThree(const CDIB&, const CDIB&, int, int) {
    return false;
}
bool CDIB::Premultiply(int) {
    return false;
}
bool CDIB::Unpremultiply(int) {
    return false;
}
bool CDIB::LoadResource(unsigned short, KXMODULE) {
    return false;
}
bool CDIB::LoadResource(const wchar_t*, KXMODULE) {
    return false;
}
bool CDIB::ShowOnDesktop(int, int, int, int) {
    return false;
}
bool CDIB::ShowAlphaOnDesktop(int, int, int, int) {
    return false;
}
} // namespace stdfx
