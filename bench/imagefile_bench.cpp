// Image files: a 4000 x 3000 JPEG photo decoded to 32 bits, and written as TIFF, through
// CreateImageIO; beside GraphicsMagick doing the same where it is installed.
#include <benchmark/benchmark.h>

#include <kelp/imageio.h>

#include <turbojpeg.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#if KELP_BENCH_GM
#include <Magick++.h>
#endif

namespace {

constexpr int kWidth = 4000, kHeight = 3000;

// A photo-like picture (smooth ramps with fine detail), written once as a JPEG of
// quality 90 into the temporary directory.
const std::string& PhotoPath() {
    static const std::string path = [] {
        const char* t = std::getenv("TMPDIR");
        const std::string p =
            std::string(t && *t ? t : "/tmp") + "/kelp-bench-" + std::to_string(getpid()) + ".jpg";
        std::vector<unsigned char> rgb(size_t(kWidth) * kHeight * 3);
        uint32_t noise = 12345;
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                noise = noise * 1103515245u + 12345u;
                unsigned char* px = &rgb[(size_t(y) * kWidth + x) * 3];
                const int n = int((noise >> 16) & 15) - 8;
                px[0] = (unsigned char)std::min(255, std::max(0, x * 255 / kWidth + n));
                px[1] = (unsigned char)std::min(255, std::max(0, y * 255 / kHeight + n));
                px[2] = (unsigned char)std::min(255, std::max(0, ((x ^ y) & 255) / 2 + 64 + n));
            }
        tjhandle h = tjInitCompress();
        unsigned char* jpeg = nullptr;
        unsigned long size = 0;
        tjCompress2(h, rgb.data(), kWidth, 0, kHeight, TJPF_RGB, &jpeg, &size, TJSAMP_420, 90, 0);
        FILE* f = std::fopen(p.c_str(), "wb");
        std::fwrite(jpeg, 1, size, f);
        std::fclose(f);
        tjFree(jpeg);
        tjDestroy(h);
        std::atexit([] { std::remove(PhotoPath().c_str()); });
        return p;
    }();
    return path;
}

std::wstring Wide(const std::string& s) {
    return std::wstring(s.begin(), s.end());
}

std::string TiffPath() {
    return PhotoPath() + ".tif";
}

struct Loaded {
    KXBMINFOHEADER desc{};
    void* pixels = nullptr;
};

bool LoadPhoto(kelp::IImageIO* io, kelp::IAllocator* a, Loaded* l) {
    const std::wstring path = Wide(PhotoPath());
    KXBMINFOHEADER* info = nullptr;
    if (KX_FAILED(io->GetImageInfo(path.c_str(), &info, a))) return false;
    l->desc = *info;
    a->Free(info);
    kelp::ImageLoadOptions o = {24, 32, 0, 0, 0, 0};
    return KX_SUCCEEDED(io->LoadImage(path.c_str(), &l->desc, &l->pixels, a, &o));
}

void ImageFile_JpegTo32(benchmark::State& state) {
    kelp::IImageIO* io = CreateImageIO(KXIMAGEIO_VERSION, nullptr);
    kelp::CCppAllocator a;
    PhotoPath();
    for (auto _ : state) {
        Loaded l;
        if (!LoadPhoto(io, &a, &l)) state.SkipWithError("load failed");
        a.Free(l.pixels);
    }
    io->Release();
    state.SetItemsProcessed(state.iterations() * int64_t(kWidth) * kHeight);
}
BENCHMARK(ImageFile_JpegTo32)->Unit(benchmark::kMillisecond)->UseRealTime();

// A caller's allocator that keeps its one block from load to load, as a player that
// shows picture after picture into the same buffer does: the load itself, without a
// fresh mapping of the 48 MB output each time.
class ReusingAllocator : public kelp::IAllocator {
  public:
    ~ReusingAllocator() { std::free(m_block); }
    void* Allocate(unsigned int size, uint32_t) override {
        if (size > m_size) {
            std::free(m_block);
            m_block = std::malloc(size);
            m_size = m_block ? size : 0;
        }
        return m_block;
    }
    void* ReAllocate(void*, unsigned int size, uint32_t flags) override {
        return Allocate(size, flags);
    }
    unsigned int GetSize(void*) override { return m_size; }
    void Free(void*) override {}

  private:
    void* m_block = nullptr;
    unsigned int m_size = 0;
};

void ImageFile_JpegTo32_ReusedBuffer(benchmark::State& state) {
    kelp::IImageIO* io = CreateImageIO(KXIMAGEIO_VERSION, nullptr);
    kelp::CCppAllocator records;
    ReusingAllocator pixels;
    const std::wstring path = Wide(PhotoPath());
    for (auto _ : state) {
        KXBMINFOHEADER* info = nullptr;
        void* px = nullptr;
        kelp::ImageLoadOptions o = {24, 32, 0, 0, 0, 0};
        if (KX_FAILED(io->GetImageInfo(path.c_str(), &info, &records))) {
            state.SkipWithError("info failed");
            break;
        }
        KXBMINFOHEADER desc = *info;
        records.Free(info);
        if (KX_FAILED(io->LoadImage(path.c_str(), &desc, &px, &pixels, &o)))
            state.SkipWithError("load failed");
    }
    io->Release();
    state.SetItemsProcessed(state.iterations() * int64_t(kWidth) * kHeight);
}
BENCHMARK(ImageFile_JpegTo32_ReusedBuffer)->Unit(benchmark::kMillisecond)->UseRealTime();

// TurboJPEG alone: the file already in memory, decoded bottom-up to BGRA into a buffer
// kept from run to run, with the flags the library uses.
void ImageFile_TurboJpegDecode_Bare(benchmark::State& state) {
    FILE* f = std::fopen(PhotoPath().c_str(), "rb");
    std::vector<unsigned char> jpeg;
    if (f) {
        std::fseek(f, 0, SEEK_END);
        jpeg.resize(size_t(std::ftell(f)));
        std::fseek(f, 0, SEEK_SET);
        if (std::fread(jpeg.data(), 1, jpeg.size(), f) != jpeg.size()) jpeg.clear();
        std::fclose(f);
    }
    std::vector<unsigned char> out(size_t(kWidth) * kHeight * 4);
    tjhandle h = tjInitDecompress();
    for (auto _ : state)
        if (jpeg.empty() ||
            tjDecompress2(h, jpeg.data(), (unsigned long)jpeg.size(), out.data(), kWidth,
                          kWidth * 4, kHeight, TJPF_BGRA,
                          TJFLAG_BOTTOMUP | TJFLAG_STOPONWARNING | TJFLAG_LIMITSCANS) != 0)
            state.SkipWithError("decode failed");
    tjDestroy(h);
    state.SetItemsProcessed(state.iterations() * int64_t(kWidth) * kHeight);
}
BENCHMARK(ImageFile_TurboJpegDecode_Bare)->Unit(benchmark::kMillisecond)->UseRealTime();

void ImageFile_32ToTiff(benchmark::State& state) {
    kelp::IImageIO* io = CreateImageIO(KXIMAGEIO_VERSION, nullptr);
    kelp::CCppAllocator a;
    Loaded l;
    if (!LoadPhoto(io, &a, &l)) state.SkipWithError("load failed");
    const std::wstring out = Wide(TiffPath());
    for (auto _ : state)
        if (KX_FAILED(io->SaveImage(out.c_str(), &l.desc, l.pixels, nullptr)))
            state.SkipWithError("save failed");
    a.Free(l.pixels);
    io->Release();
    std::remove(TiffPath().c_str());
    state.SetItemsProcessed(state.iterations() * int64_t(kWidth) * kHeight);
}
BENCHMARK(ImageFile_32ToTiff)->Unit(benchmark::kMillisecond)->UseRealTime();

// The whole task: the photo decoded to 32 bits and written as TIFF.
void ImageFile_JpegToTiff(benchmark::State& state) {
    kelp::IImageIO* io = CreateImageIO(KXIMAGEIO_VERSION, nullptr);
    kelp::CCppAllocator a;
    const std::wstring out = Wide(TiffPath());
    PhotoPath();
    for (auto _ : state) {
        Loaded l;
        if (!LoadPhoto(io, &a, &l) ||
            KX_FAILED(io->SaveImage(out.c_str(), &l.desc, l.pixels, nullptr)))
            state.SkipWithError("failed");
        a.Free(l.pixels);
    }
    io->Release();
    std::remove(TiffPath().c_str());
    state.SetItemsProcessed(state.iterations() * int64_t(kWidth) * kHeight);
}
BENCHMARK(ImageFile_JpegToTiff)->Unit(benchmark::kMillisecond)->UseRealTime();

#if KELP_BENCH_GM
// GraphicsMagick: read (its own pixels, 8 bits a channel with opacity) and write an
// uncompressed TIFF.
void ImageFile_GraphicsMagick_JpegToTiff(benchmark::State& state) {
    Magick::InitializeMagick(nullptr);
    PhotoPath();
    const std::string out = TiffPath() + ".gm.tif";
    for (auto _ : state) {
        Magick::Image image;
        image.read(PhotoPath());
        image.compressType(Magick::NoCompression);
        image.write(out);
    }
    std::remove(out.c_str());
    state.SetItemsProcessed(state.iterations() * int64_t(kWidth) * kHeight);
}
BENCHMARK(ImageFile_GraphicsMagick_JpegToTiff)->Unit(benchmark::kMillisecond)->UseRealTime();

void ImageFile_GraphicsMagick_JpegDecode(benchmark::State& state) {
    Magick::InitializeMagick(nullptr);
    PhotoPath();
    for (auto _ : state) {
        Magick::Image image;
        image.read(PhotoPath());
        benchmark::DoNotOptimize(image.getConstPixels(0, 0, 1, 1));
    }
    state.SetItemsProcessed(state.iterations() * int64_t(kWidth) * kHeight);
}
BENCHMARK(ImageFile_GraphicsMagick_JpegDecode)->Unit(benchmark::kMillisecond)->UseRealTime();
#endif

} // namespace
