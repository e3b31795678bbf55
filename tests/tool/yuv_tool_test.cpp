// YUV pictures through the tool: kelp convert writes a .bsi in each colour space, the
// library reads it back to the RGB it came from within the rounding of that space, the
// tool reads it back to .png, and kelp info tells what the file holds.
#include <gtest/gtest.h>

#include <kelp/kelp.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tool_run.h"

namespace {

constexpr int kW = 61, kH = 29; // an odd width: rows of 24 bits carry padding

size_t Pitch(const KXBMINFOHEADER& d) {
    return (size_t(d.biBitCount) * size_t(d.biWidth) / 8 + 3) & ~size_t(3);
}

std::wstring Wide(const std::string& s) {
    return std::wstring(s.begin(), s.end());
}

// A picture in memory: its record and pixels.
struct Picture {
    KXBMINFOHEADERYUV desc{};
    std::vector<uint8_t> pixels;

    // B, G, R of pixel (x, y), y counted in memory order.
    const uint8_t* At(int x, int y) const {
        return pixels.data() + size_t(y) * Pitch(desc.bmi) + size_t(x) * (desc.bmi.biBitCount / 8);
    }
    uint8_t* At(int x, int y) { return const_cast<uint8_t*>(std::as_const(*this).At(x, y)); }
};

// A 24-bit picture whose colours spread over the cube; `low` and `high` bound every
// component.
Picture MakePicture(int low = 0, int high = 255) {
    Picture p;
    p.desc.bmi.biSize = KXBMI_SIZE;
    p.desc.bmi.biWidth = kW;
    p.desc.bmi.biHeight = kH;
    p.desc.bmi.biPlanes = 1;
    p.desc.bmi.biBitCount = 24;
    p.desc.bmi.bmiFrame = 1;
    p.desc.bmi.bmiMagic = KXBMI_MAGIC;
    p.pixels.assign(Pitch(p.desc.bmi) * kH, 0);
    p.desc.bmi.biSizeImage = uint32_t(p.pixels.size());
    const int span = high - low;
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x) {
            uint8_t* px = p.At(x, y);
            px[0] = uint8_t(low + (x * 37 + y * 11) % 256 * span / 255);
            px[1] = uint8_t(low + (x * 5 + y * 53) % 256 * span / 255);
            px[2] = uint8_t(low + (x * 97 + y * 3) % 256 * span / 255);
        }
    // Black, white and the primaries in the first row.
    const uint8_t corners[][3] = {{0, 0, 0},   {255, 255, 255}, {0, 0, 255},   {0, 255, 0},
                                  {255, 0, 0}, {255, 255, 0},   {0, 255, 255}, {255, 0, 255}};
    if (low == 0 && high == 255)
        for (int i = 0; i < 8; ++i)
            std::copy_n(corners[i], 3, p.At(i, 0));
    return p;
}

// A file read through the library, its extension kept.
Picture Load(const std::string& path, uint32_t bits = 0) {
    kelp::IImageIO* io = CreateImageIO(KXIMAGEIO_VERSION, nullptr);
    kelp::CCppAllocator a;
    Picture p;
    KXBMINFOHEADER* info = nullptr;
    EXPECT_EQ(io->GetImageInfo(Wide(path).c_str(), &info, &a), KX_OK) << path;
    if (!info) {
        io->Release();
        return p;
    }
    std::memcpy(&p.desc, info, std::min<size_t>(info->biSize, sizeof p.desc));
    p.desc.bmi.biSize = info->biCompression == KXBI_YUV ? KXBMI_SIZE_YUV : KXBMI_SIZE;
    a.Free(info);
    kelp::ImageLoadOptions o = {24, bits, 0, 0, 0, 0};
    void* px = nullptr;
    EXPECT_EQ(io->LoadImage(Wide(path).c_str(), &p.desc.bmi, &px, &a, &o), KX_OK) << path;
    io->Release();
    if (px) {
        const uint8_t* b = static_cast<const uint8_t*>(px);
        p.pixels.assign(b, b + p.desc.bmi.biSizeImage);
        a.Free(px);
    }
    return p;
}

// The picture converted by the conversion manager into `out`, or an empty one.
Picture ThroughManager(Picture in, KXBMINFOHEADERYUV out) {
    kelp::IConversionManager* cm = KXCONVCreateConversionManager();
    cm->Init(KXCONV_VERSION, 0);
    kelp::CCppAllocator a;
    void* data = nullptr;
    uint32_t flags = KXCONV_KEEP_INPUT;
    int32_t q = 0;
    Picture r;
    if (KX_SUCCEEDED(
            cm->Convert(&in.desc.bmi, in.pixels.data(), &out.bmi, &data, &flags, &q, &a))) {
        r.desc = out;
        const uint8_t* b = static_cast<const uint8_t*>(data);
        r.pixels.assign(b, b + out.bmi.biSizeImage);
        if (data != in.pixels.data()) a.Free(data);
    }
    cm->Release();
    return r;
}

struct Difference {
    int worst = 0;
    double mean = 0;
};

Difference Compare(const Picture& a, const Picture& b) {
    Difference d;
    EXPECT_EQ(a.desc.bmi.biWidth, b.desc.bmi.biWidth);
    EXPECT_EQ(a.desc.bmi.biHeight, b.desc.bmi.biHeight);
    if (a.pixels.empty() || b.pixels.empty() || a.desc.bmi.biWidth != b.desc.bmi.biWidth ||
        a.desc.bmi.biHeight != b.desc.bmi.biHeight)
        return {999, 999};
    double sum = 0;
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x)
            for (int k = 0; k < 3; ++k) {
                const int e = std::abs(int(a.At(x, y)[k]) - int(b.At(x, y)[k]));
                d.worst = std::max(d.worst, e);
                sum += e;
            }
    d.mean = sum / (kW * kH * 3);
    return d;
}

class YuvTool : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/kelp-yuv-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        m_dir = tmpl;
    }
    void TearDown() override { std::filesystem::remove_all(m_dir); }
    kelptest::ToolRun Run(const std::string& args) { return kelptest::RunTool(m_dir, args); }
    std::string Path(const std::string& name) const { return m_dir + "/" + name; }
    void SavePng(const std::string& name, const Picture& p) {
        ASSERT_EQ(kelp::SavePNGImage(Wide(Path(name)).c_str(), &p.desc.bmi, p.pixels.data()),
                  KX_OK);
    }
    std::vector<std::string> Files() const {
        std::vector<std::string> names;
        for (const auto& e : std::filesystem::directory_iterator(m_dir))
            names.push_back(e.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    std::string m_dir;
};

} // namespace

// The bound of a round trip RGB -> YUV -> RGB at the 100 % chroma limit: each component
// within 3 in BT.601 and within 2 in BT.709, less than 1 on average.
TEST_F(YuvTool, AYuvFileReadsBackToTheSameRgbWithinTheRoundingOfItsSpace) {
    struct Case {
        const char* space;
        const char* alpha; // --alpha for a 32-bit file, or empty
        uint32_t code;     // yuvColorSpace in the file
        int bound;
        const char* summary;
    } cases[] = {
        {"601", "", 0, 3, "24 bits, YUV 4:4:4 BT.601"},
        {"709", "", 2, 2, "24 bits, YUV 4:4:4 BT.709"},
        {"601", "opaque", 0, 3, "32 bits, opaque alpha, YUV 4:4:4 BT.601"},
        {"709", "straight", 2, 2, "32 bits, straight alpha, YUV 4:4:4 BT.709"},
    };
    const Picture original = MakePicture();
    SavePng("in.png", original);
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.space) + " " + c.alpha);
        const std::string alpha = *c.alpha ? std::string(" --alpha ") + c.alpha : "";
        const kelptest::ToolRun w =
            Run("convert in.png y.bsi --yuv " + std::string(c.space) + alpha);
        ASSERT_EQ(w.code, 0) << w.err;
        EXPECT_EQ(w.out, "in.png: 61 x 29 -> y.bsi: 61 x 29, " + std::string(c.summary) + "\n");
        EXPECT_EQ(w.err, "");

        // The file as the library reads it: a meshed 4:4:4 record of the asked space.
        const Picture file = Load(Path("y.bsi"));
        const uint16_t bits = *c.alpha ? 32 : 24;
        ASSERT_EQ(file.desc.bmi.biCompression, KXBI_YUV);
        EXPECT_EQ(file.desc.bmi.biBitCount, bits);
        EXPECT_EQ(file.desc.bmi.biSize, KXBMI_SIZE_YUV);
        EXPECT_EQ(file.desc.yuv.yuvColorSpace, c.code);
        EXPECT_EQ(file.desc.yuv.yuvSampling, KXYUV_SAMPLING_444);
        EXPECT_EQ(file.desc.yuv.yuvBits, 8u);
        EXPECT_EQ(file.desc.bmi.biSizeImage, Pitch(file.desc.bmi) * kH);
        EXPECT_EQ(kelp::ValidateBIH(&file.desc.bmi), KX_OK);

        // Back to RGB through the conversion manager.
        KXBMINFOHEADERYUV rgb = original.desc;
        rgb.bmi.biBitCount = bits;
        rgb.bmi.bmiAlpha = file.desc.bmi.bmiAlpha;
        const Picture back = ThroughManager(file, rgb);
        ASSERT_FALSE(back.pixels.empty());
        const Difference d = Compare(back, original);
        EXPECT_LE(d.worst, c.bound);
        EXPECT_LT(d.mean, 1.0);

        // And by the tool, to .png: the same pixels the manager gives.
        const kelptest::ToolRun r = Run("convert y.bsi back.png");
        ASSERT_EQ(r.code, 0) << r.err;
        EXPECT_EQ(Compare(Load(Path("back.png"), bits), back).worst, 0);
    }
}

TEST_F(YuvTool, InfoTellsTheColourSpaceAndSampling) {
    SavePng("in.png", MakePicture());
    struct Case {
        const char* args;
        std::vector<std::string> lines;
    } cases[] = {
        {"--yuv 601",
         {"compression:  YUV444\n", "colour space: BT.601, limited range (luma 16..235)\n",
          "sampling:     4:4:4, meshed, 8 bits a component\n"}},
        {"--yuv 709 --alpha opaque",
         {"bits:         32 (the file holds 32)\n",
          "colour space: BT.709, limited range (luma 16..235)\n",
          "sampling:     4:4:4, meshed, 8 bits a component, with alpha\n"}},
        {"--yuv full",
         {"colour space: BT.601, full range (read by the tool, not by the conversion "
          "manager)\n"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        ASSERT_EQ(Run(std::string("convert in.png y.bsi ") + c.args).code, 0);
        const kelptest::ToolRun r = Run("info y.bsi");
        ASSERT_EQ(r.code, 0) << r.err;
        for (const std::string& line : c.lines)
            EXPECT_NE(r.out.find(line), std::string::npos) << line << "in\n" << r.out;
    }
    // An RGB file says nothing of YUV.
    ASSERT_EQ(Run("convert in.png rgb.bsi").code, 0);
    const kelptest::ToolRun r = Run("info rgb.bsi");
    EXPECT_EQ(r.out.find("colour space"), std::string::npos) << r.out;
}

TEST_F(YuvTool, TheChromaLimitKeepsChromaWithin44To212) {
    SavePng("in.png", MakePicture());
    struct Case {
        const char* args;
        bool limited;
    } cases[] = {
        {"--yuv 601 --chroma-limit 75", true},   {"--yuv 709 --chroma-limit 75", true},
        {"--yuv 709 --chroma-limit 100", false}, {"--yuv 709", false},
        {"--yuv full --chroma-limit 75", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        ASSERT_EQ(Run(std::string("convert in.png y.bsi ") + c.args).code, 0);
        const Picture file = Load(Path("y.bsi"));
        ASSERT_FALSE(file.pixels.empty());
        int low = 255, high = 0;
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kW; ++x)
                for (int k = 1; k < 3; ++k) {
                    low = std::min<int>(low, file.At(x, y)[k]);
                    high = std::max<int>(high, file.At(x, y)[k]);
                }
        if (c.limited) {
            // The saturated colours of the picture reach both ends.
            EXPECT_EQ(low, 44);
            EXPECT_EQ(high, 212);
        } else {
            EXPECT_LT(low, 40);
            EXPECT_GT(high, 216);
        }
    }
}

TEST_F(YuvTool, FullRangeIsTheToolsOwnAndReadsBack) {
    // Components within 40..215: no luma or chroma reaches the limits of the tables.
    const Picture original = MakePicture(40, 215);
    SavePng("in.png", original);
    ASSERT_EQ(Run("convert in.png y.bsi --yuv full").code, 0);
    const Picture file = Load(Path("y.bsi"));
    ASSERT_EQ(file.desc.bmi.biCompression, KXBI_YUV);
    EXPECT_EQ(file.desc.yuv.yuvColorSpace, 1u);
    // The conversion manager takes no full-range record.
    EXPECT_EQ(kelp::ValidateBIH(&file.desc.bmi), KXE_INVALID);
    EXPECT_TRUE(ThroughManager(file, original.desc).pixels.empty());
    const kelptest::ToolRun r = Run("convert y.bsi back.png");
    ASSERT_EQ(r.code, 0) << r.err;
    const Difference d = Compare(Load(Path("back.png"), 24), original);
    EXPECT_LE(d.worst, 2);
    EXPECT_LT(d.mean, 1.0);
}

TEST_F(YuvTool, ATopDownYuvFileReadsTheRightWayUp) {
    SavePng("in.png", MakePicture());
    ASSERT_EQ(Run("convert in.png y.bsi --yuv 709").code, 0);
    ASSERT_EQ(Run("convert y.bsi up.png").code, 0);
    // The same picture stored top-down: rows reversed, the height negative.
    Picture file = Load(Path("y.bsi"));
    Picture flipped = file;
    const size_t pitch = Pitch(file.desc.bmi);
    for (int y = 0; y < kH; ++y)
        std::copy_n(&file.pixels[size_t(y) * pitch], pitch,
                    &flipped.pixels[size_t(kH - 1 - y) * pitch]);
    flipped.desc.bmi.biHeight = -kH;
    kelp::IImageIO* io = CreateImageIO(KXIMAGEIO_VERSION, nullptr);
    ASSERT_EQ(io->SaveImage(Wide(Path("down.bsi")).c_str(), &flipped.desc.bmi,
                            flipped.pixels.data(), nullptr),
              KX_OK);
    io->Release();
    for (const char* space : {"", " --yuv 601", " --yuv full"}) {
        SCOPED_TRACE(space);
        const std::string out = *space ? "down2.bsi" : "down.png";
        const kelptest::ToolRun r = Run("convert down.bsi " + out + space);
        ASSERT_EQ(r.code, 0) << r.err;
        if (!*space) {
            EXPECT_EQ(Compare(Load(Path("down.png"), 24), Load(Path("up.png"), 24)).worst, 0);
        } else {
            const Picture again = Load(Path(out));
            EXPECT_EQ(again.desc.bmi.biHeight, kH); // bottom-up now
        }
    }
}

TEST_F(YuvTool, RequestsTheFilesCannotHoldFailAndLeaveNothing) {
    SavePng("in.png", MakePicture());
    // A 4:2:2 record: the library reads the file but converts no such YUV.
    Picture odd = MakePicture();
    odd.desc.bmi.biSize = KXBMI_SIZE_YUV;
    odd.desc.bmi.biCompression = KXBI_YUV;
    odd.desc.bmi.bmiExtOffset = KXBMI_EXTOFFSET;
    odd.desc.yuv.yuvBits = 8;
    odd.desc.yuv.yuvSampling = KXYUV_SAMPLING_422B;
    kelp::IImageIO* io = CreateImageIO(KXIMAGEIO_VERSION, nullptr);
    ASSERT_EQ(
        io->SaveImage(Wide(Path("422.bsi")).c_str(), &odd.desc.bmi, odd.pixels.data(), nullptr),
        KX_OK);
    io->Release();
    struct Case {
        const char* args;
        const char* err;
    } cases[] = {
        {"convert in.png y.png --yuv 709",
         "kelp convert: --yuv needs a .bsi output: no other file holds YUV\n"},
        {"convert in.png y.bsi --chroma-limit 75", "kelp convert: --chroma-limit needs --yuv\n"},
        {"convert 422.bsi y.png",
         "kelp convert: 422.bsi: the YUV picture is not meshed 4:4:4 in 8 bits, the only YUV "
         "the library converts\n"},
        {"convert 422.bsi y.bsi --yuv 601",
         "kelp convert: 422.bsi: the YUV picture is not meshed 4:4:4 in 8 bits, the only YUV "
         "the library converts\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        const kelptest::ToolRun r = Run(c.args);
        EXPECT_EQ(r.code, 1);
        EXPECT_EQ(r.err, c.err);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(Files(), (std::vector<std::string>{"422.bsi", "in.png"}));
    }
}
