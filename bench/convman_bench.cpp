// The conversion manager's own costs on a full HD frame: the checks of an identity
// conversion (records, readability of the pixels), the forced copy, and the alpha plane
// out and in.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include <kelp/kelp.h>

namespace {

struct Frame {
    KXBMINFOHEADER desc;
    std::vector<unsigned char> storage;
    unsigned char* pixels;
    Frame(int32_t w, int32_t h) {
        std::memset(&desc, 0, sizeof desc);
        desc.biSize = KXBMI_SIZE;
        desc.biWidth = w;
        desc.biHeight = h;
        desc.biPlanes = 1;
        desc.biBitCount = 32;
        desc.biSizeImage = uint32_t(w) * uint32_t(h) * 4;
        desc.bmiMagic = KXBMI_MAGIC;
        desc.bmiFrame = 1;
        storage.assign(desc.biSizeImage + 16, 0x80);
        // 16-byte aligned, so that no unaligned-buffer trace is made.
        pixels = storage.data() + ((16 - (uintptr_t(storage.data()) & 15)) & 15);
    }
};

void BM_ConvertIdentityShared(benchmark::State& state) {
    Frame f(int32_t(state.range(0)), int32_t(state.range(1)));
    kelp::IConversionManager* cm = KXCONVCreateConversionManager();
    cm->Init(0x10002, 0);
    kelp::CCppAllocator a;
    for (auto _ : state) {
        KXBMINFOHEADER out = f.desc;
        void* outData = nullptr;
        uint32_t flags = KXCONV_KEEP_INPUT;
        int32_t q = 0;
        benchmark::DoNotOptimize(cm->Convert(&f.desc, f.pixels, &out, &outData, &flags, &q, &a));
    }
    cm->Release();
}
BENCHMARK(BM_ConvertIdentityShared)->Args({4, 4})->Args({1920, 1080});

void BM_ConvertIdentityCopy(benchmark::State& state) {
    Frame f(1920, 1080);
    kelp::IConversionManager* cm = KXCONVCreateConversionManager();
    cm->Init(0x10002, 0);
    kelp::CCppAllocator a;
    for (auto _ : state) {
        KXBMINFOHEADER out = f.desc;
        void* outData = nullptr;
        uint32_t flags = KXCONV_KEEP_INPUT | KXCONV_FORCE_COPY;
        int32_t q = 0;
        cm->Convert(&f.desc, f.pixels, &out, &outData, &flags, &q, &a);
        a.Free(outData);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * f.desc.biSizeImage);
    cm->Release();
}
BENCHMARK(BM_ConvertIdentityCopy);

// What the forced copy would cost without the manager: the same frame into a new block
// of the C library, for the ratio of the two in one run.
void BM_PlainCopy(benchmark::State& state) {
    Frame f(1920, 1080);
    for (auto _ : state) {
        void* out = std::malloc(f.desc.biSizeImage);
        std::memcpy(out, f.pixels, f.desc.biSizeImage);
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * f.desc.biSizeImage);
}
BENCHMARK(BM_PlainCopy);

void BM_AlphaOutAndIn(benchmark::State& state) {
    Frame f(1920, 1080);
    kelp::IConversionManager* cm = KXCONVCreateConversionManager();
    kelp::CCppAllocator a;
    for (auto _ : state) {
        KXBMINFOHEADER* ad = nullptr;
        void* ap = nullptr;
        cm->ExtractAlpha(&f.desc, f.pixels, &ad, &ap, &a);
        cm->InsertAlpha(&f.desc, f.pixels, ad, ap);
        a.Free(ad);
        a.Free(ap);
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * 1920 * 1080);
    cm->Release();
}
BENCHMARK(BM_AlphaOutAndIn);

} // namespace
