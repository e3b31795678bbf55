// The demo picture of the compositor: the same foreground (three translucent discs of
// red, green and blue) blended into the same background (a colour ramp that fades to
// transparent at its bottom) by each of the twenty modes, in a grid of five by four.
#include "demo_compose.h"

#include "imagetool.h"

#include <kelp/kelp.h>

#include <cstdio>
#include <cstring>
#include <filesystem>

namespace composetool {

namespace {

constexpr int kTile = 96, kColumns = 5, kRows = 4;

stdfx::CDIB MakeTile() {
    KXBMINFOHEADER h = {};
    h.biSize = KXBMI_SIZE;
    h.biWidth = kTile;
    h.biHeight = -kTile; // top-down
    h.biPlanes = 1;
    h.biBitCount = 32;
    h.bmiMagic = KXBMI_MAGIC;
    h.bmiAlpha = KXDIB_ALPHA_PREMULTIPLIED;
    h.bmiFrame = 1;
    return stdfx::CDIB(&h);
}

uint8_t* Pixel(const stdfx::CDIB& dib, int x, int y) {
    return static_cast<uint8_t*>(dib.Bits()) + ptrdiff_t(y) * dib.Stride() + 4 * x;
}

int Premultiplied(int c, int a) {
    const int t = c * a + 128;
    return (t + (t >> 8)) >> 8;
}

void Background(stdfx::CDIB& dib) {
    for (int y = 0; y < kTile; ++y)
        for (int x = 0; x < kTile; ++x) {
            const int a = y < kTile * 3 / 4 ? 255 : 255 - (y - kTile * 3 / 4) * 10;
            uint8_t* p = Pixel(dib, x, y);
            p[0] = uint8_t(Premultiplied(255 - x * 255 / kTile, a));
            p[1] = uint8_t(Premultiplied(y * 255 / kTile, a));
            p[2] = uint8_t(Premultiplied(x * 255 / kTile, a));
            p[3] = uint8_t(a);
        }
}

void Foreground(stdfx::CDIB& dib) {
    std::memset(dib.Bits(), 0, size_t(dib.Stride()) * kTile);
    const int cx[3] = {36, 60, 48}, cy[3] = {38, 38, 60};
    for (int y = 0; y < kTile; ++y)
        for (int x = 0; x < kTile; ++x) {
            int c[3] = {0, 0, 0}, a = 0;
            for (int i = 0; i < 3; ++i) {
                const int dx = x - cx[i], dy = y - cy[i];
                if (dx * dx + dy * dy > 24 * 24) continue;
                c[2 - i] = 255; // red, green, blue discs
                a = 200;
            }
            uint8_t* p = Pixel(dib, x, y);
            for (int i = 0; i < 3; ++i)
                p[i] = uint8_t(Premultiplied(c[i], a));
            p[3] = uint8_t(a);
        }
}

} // namespace

bool DemoCompose(const std::string& outDir) {
    KXBMINFOHEADER h = {};
    h.biSize = KXBMI_SIZE;
    h.biWidth = kTile * kColumns;
    h.biHeight = -kTile * kRows;
    h.biPlanes = 1;
    h.biBitCount = 32;
    h.bmiMagic = KXBMI_MAGIC;
    h.bmiAlpha = KXDIB_ALPHA_PREMULTIPLIED;
    h.bmiFrame = 1;
    stdfx::CDIB sheet(&h);
    stdfx::CDIB fg = MakeTile();
    if (!sheet.IsValid() || !fg.IsValid()) return false;
    Foreground(fg);
    bool ok = true;
    for (int mode = 1; mode <= 20; ++mode) {
        stdfx::CDIB tile = MakeTile();
        Background(tile);
        stdfx::CDibCompose compose(uint32_t(mode), 0);
        ok &= compose.Compose(tile, fg, 0, -1);
        const int col = (mode - 1) % kColumns, row = (mode - 1) / kColumns;
        for (int y = 0; y < kTile; ++y)
            std::memcpy(Pixel(sheet, col * kTile, row * kTile + y), Pixel(tile, 0, y), 4 * kTile);
    }
    const std::string path = (std::filesystem::path(outDir) / "compose.png").string();
    std::wstring wide;
    ok &= imagetool::Wide(path, &wide) &&
          KX_SUCCEEDED(kelp::SavePNGImage(wide.c_str(), sheet.Header(), sheet.Bits()));
    std::printf("%-34s %s\n", "compose: twenty modes", ok ? "ok" : "FAILED");
    if (ok) std::printf("see %s: blend modes 1 to 20, five to a row\n", path.c_str());
    return ok;
}

} // namespace composetool
