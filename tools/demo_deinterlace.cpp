// The deinterlacing part of kelp demo: three interlaced frames of a bar and a disc that
// move between the two fields of each frame, the middle one made whole by each method,
// and the results side by side in one picture.
#include "demo_deinterlace.h"

#include <kelp/kelp.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "imagetool.h"

namespace kelpdemo {

namespace {

using stdfx::CDIB;

constexpr int kW = 128, kH = 96; // one frame
constexpr int kGap = 4, kColumns = 5, kRows = 2;

KXBMINFOHEADERYUV Header(int width, int height) {
    KXBMINFOHEADERYUV d = {};
    d.bmi.biSize = KXBMI_SIZE;
    d.bmi.biWidth = width;
    d.bmi.biHeight = -height; // top-down
    d.bmi.biPlanes = 1;
    d.bmi.biBitCount = 32;
    d.bmi.biSizeImage = uint32_t(width * height * 4);
    d.bmi.bmiMagic = KXBMI_MAGIC;
    d.bmi.bmiAlpha = KXDIB_ALPHA_OPAQUE;
    return d;
}

// The scene at time t (one step a field): a slanted white bar moving right and a red
// disc moving left, over a dark gradient.
uint32_t Scene(int x, int y, int t) {
    const int bar = x - y / 3 - 20 - 5 * t;
    if (bar >= 0 && bar < 10) return 0xFFF0F0F0u;
    const int dx = x - (100 - 4 * t), dy = y - 60;
    if (dx * dx + dy * dy < 15 * 15) return 0xFF2020E0u;
    const uint32_t shade = uint32_t(30 + y / 2);
    return 0xFF000000u | (shade << 16) | (shade << 8) | uint32_t(40 + x / 3);
}

// Frame k: its even lines at time 2k, its odd lines at time 2k + 1.
CDIB Frame(int k) {
    KXBMINFOHEADERYUV h = Header(kW, kH);
    h.bmi.bmiFrame = 0; // interlaced
    CDIB frame(&h.bmi);
    for (int y = 0; y < kH; ++y) {
        auto* row = static_cast<uint8_t*>(frame.Bits()) + ptrdiff_t(y) * frame.Stride();
        for (int x = 0; x < kW; ++x) {
            const uint32_t v = Scene(x, y, 2 * k + (y & 1));
            std::memcpy(row + 4 * x, &v, 4);
        }
    }
    return frame;
}

void Place(CDIB& canvas, const CDIB& panel, int index) {
    const int left = kGap + (index % kColumns) * (kW + kGap);
    const int top = kGap + (index / kColumns) * (kH + kGap);
    for (int y = 0; y < kH; ++y)
        std::memcpy(static_cast<uint8_t*>(canvas.Bits()) + ptrdiff_t(top + y) * canvas.Stride() +
                        4 * left,
                    static_cast<const uint8_t*>(panel.Bits()) + ptrdiff_t(y) * panel.Stride(),
                    size_t(kW) * 4);
}

} // namespace

bool DeinterlacePicture(const std::string& outDir) {
    const CDIB prev = Frame(0), cur = Frame(1), next = Frame(2);
    if (!prev.IsValid() || !cur.IsValid() || !next.IsValid()) return false;
    struct Panel {
        const char* name;
        int kind; // 0 as it is, 1 single frame, 2 temporal, 3 field expansion
        int method;
    } panels[] = {
        {"interlaced", 0, 0},
        {"repeat", 1, 1},
        {"average", 1, 2},
        {"blend", 1, 3},
        {"cubic", 1, 4},
        {"edge", 1, 5},
        {"temporal average", 2, 16},
        {"median3", 2, 17},
        {"median9", 2, 1},
        {"field expansion", 3, -1},
    };
    const KXBMINFOHEADERYUV ch = Header(kColumns * (kW + kGap) + kGap, kRows * (kH + kGap) + kGap);
    CDIB canvas(&ch.bmi);
    if (!canvas.IsValid()) return false;
    std::memset(canvas.Bits(), 0xFF, ch.bmi.biSizeImage);
    bool ok = true;
    int index = 0;
    for (const Panel& p : panels) {
        CDIB out;
        bool done = true;
        switch (p.kind) {
        case 0:
            out = cur;
            break;
        case 1:
            done = out.CreateDeinterlaced(cur, p.method, 0, -1);
            break;
        case 2:
            done = out.CreateDeinterlacedTemporal(prev, cur, next, p.method, 0, -1);
            break;
        default:
            done = out.CreateFieldExpanded(cur, 1, p.method);
        }
        if (!done) {
            std::printf("deinterlace %-17s FAILED\n", p.name);
            ok = false;
            continue;
        }
        Place(canvas, out, index++);
    }
    std::printf("deinterlaced a %d x %d frame by %d methods: %s\n", kW, kH, index - 1,
                ok ? "ok" : "FAILED");
    if (outDir.empty() || !ok) return ok;
    const std::string path = outDir + "/deinterlace.png";
    std::wstring wide;
    if (!imagetool::Wide(path, &wide) ||
        KX_FAILED(kelp::SavePNGImage(wide.c_str(), canvas.Header(), canvas.Bits()))) {
        std::printf("%s: cannot be written\n", path.c_str());
        return false;
    }
    std::printf("see %s: the interlaced frame, repeat, average, blend, cubic; edge, temporal "
                "average, median3, median9, field expansion\n",
                path.c_str());
    return true;
}

} // namespace kelpdemo
