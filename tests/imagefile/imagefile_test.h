// The fixture of the image file tests: a temporary directory, an image file object,
// and loading and saving of sample pictures.
#pragma once

#include <gtest/gtest.h>

#include <kelp/imageio.h>
#include <kelp/kxbih.h>

#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "kxbihtest.h"
#include "runtime/kelpos.h"
#include "samples.h"

namespace kelptest {

// A picture as a bottom-up image of 24 or 32 bits and its record.
struct Dib {
    KXBMINFOHEADERYUV desc;
    std::vector<uint8_t> pixels;
};

inline Dib ToDib(const Img& img, uint16_t bits, uint32_t alpha = KXDIB_ALPHA_VALID) {
    Dib d;
    d.desc = MakeRgb(img.w, img.h, bits);
    d.desc.bmi.bmiAlpha = bits == 32 ? alpha : 0;
    d.pixels.assign(d.desc.bmi.biSizeImage, 0);
    const size_t stride = d.desc.bmi.biSizeImage / size_t(img.h);
    for (int32_t y = 0; y < img.h; ++y)
        for (int32_t x = 0; x < img.w; ++x) {
            uint8_t* p = d.pixels.data() + size_t(img.h - 1 - y) * stride + size_t(x) * (bits / 8);
            const uint32_t c = img.At(x, y);
            p[0] = uint8_t(c);
            p[1] = uint8_t(c >> 8);
            p[2] = uint8_t(c >> 16);
            if (bits == 32) p[3] = uint8_t(c >> 24);
        }
    return d;
}

class ImageFileTest : public ::testing::Test {
  protected:
    struct Loaded {
        KXRESULT result = KXE_IMAGEFILE;
        KXBMINFOHEADERYUV desc{};
        Img img;
    };

    void SetUp() override {
        char tmpl[] = "/tmp/kelp-imagefile-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        m_dir = tmpl;
        m_io = CreateImageIO(KXIMAGEIO_VERSION, nullptr);
        ASSERT_NE(m_io, nullptr);
        SinkSetLevelMask(~0u);
        SinkClear();
    }
    void TearDown() override {
        if (m_io) m_io->Release();
        std::error_code ec;
        std::filesystem::remove_all(m_dir, ec);
    }

    std::string Path(const std::string& name) const { return m_dir + "/" + name; }
    std::wstring WPath(const std::string& name) const { return kelp::os::FromUtf8(Path(name)); }
    void Write(const std::string& name, const Bytes& bytes) const { WriteBytes(Path(name), bytes); }

    // Loads through LoadImage with a record prepared by GetImageInfo.
    Loaded Load(const std::string& name, uint32_t bits = 32, uint32_t flags = 0, uint32_t width = 0,
                uint32_t height = 0, uint32_t optionsSize = 24) {
        Loaded l;
        KXBMINFOHEADER* info = nullptr;
        if (KX_FAILED(m_io->GetImageInfo(WPath(name).c_str(), &info, &m_alloc))) {
            l.result = KXE_IMAGEFILE;
            return l;
        }
        std::memcpy(&l.desc, info, std::min<uint32_t>(info->biSize, sizeof l.desc));
        m_alloc.Free(info);
        kelp::ImageLoadOptions o = {optionsSize, bits, flags, 0, width, height};
        void* px = nullptr;
        l.result = m_io->LoadImage(WPath(name).c_str(), &l.desc.bmi, &px, &m_alloc, &o);
        if (KX_SUCCEEDED(l.result)) {
            l.img = FromDib(&l.desc.bmi, px);
            m_alloc.Free(px);
        }
        return l;
    }

    KXRESULT Save(const std::string& name, const Dib& d,
                  const kelp::ImageSaveOptions* o = nullptr) {
        return m_io->SaveImage(WPath(name).c_str(), &d.desc.bmi, d.pixels.data(), o);
    }

    std::string m_dir;
    kelp::IImageIO* m_io = nullptr;
    TrackingAllocator m_alloc;
};

// The colour channels of two pictures are the same.
inline bool SameColours(const Img& a, const Img& b) {
    return Psnr(a, b) == 99;
}

} // namespace kelptest
