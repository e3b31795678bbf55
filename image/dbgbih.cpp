// The trace forms of a descriptor: the full line of dbgBIH and the short pair form of
// the chain search.
#include <kelp/kxbih.h>
#include <kelp/trace.h>

namespace kelp {

namespace {

// The flag letters, in this order: Z (bmiFlags bit 3), O and P (bmiAlpha bits 0 and 1),
// 2 and C (bmiFormat bits 0 and 5), F (bmiFrame bit 0).
void FlagText(const KXBMINFOHEADER* d, wchar_t text[8]) {
    int n = 0;
    if (d->bmiFlags & KXBMIFLAGS_Z) text[n++] = L'Z';
    if (d->bmiAlpha & 1) text[n++] = L'O';
    if (d->bmiAlpha & 2) text[n++] = L'P';
    if (d->bmiFormat & KXBMIFORMAT_TWOFIELDS) text[n++] = L'2';
    if (d->bmiFormat & KXBMIFORMAT_ODDEVEN_CHRONO) text[n++] = L'C';
    if (d->bmiFrame & 1) text[n++] = L'F';
    text[n] = 0;
}

char CodeChar(uint32_t code, int i) {
    return char((code >> (8 * i)) & 0xFF);
}

} // namespace

void dbgBIH(int area, int level, const wchar_t* name, const tagKXBMINFOHEADER* bih,
            const wchar_t* tail) {
    if (!dbgActive(area, level)) return;
    if (!bih) {
        dbgPrintf(area, level, L"%s:(NULL)%s", name, tail);
        return;
    }
    wchar_t flags[8];
    FlagText(bih, flags);
    uint32_t code =
        bih->biCompression == KXBI_RGB ? KXFOURCC('R', 'G', 'B', ' ') : bih->biCompression;
    dbgPrintf(area, level, L"%s:(0x%p,%d,%d,%d,%d,%d,%hc%hc%hc%hc,%d,%s,%d,%d,%d)%s", name,
              static_cast<const void*>(bih), int(bih->biSize), int(bih->biPlanes), bih->biWidth,
              bih->biHeight, int(bih->biBitCount), CodeChar(code, 0), CodeChar(code, 1),
              CodeChar(code, 2), CodeChar(code, 3), int(bih->biSizeImage), flags,
              int(bih->bmiRatioX), bih->bmiAlignment, int(bih->bmiReserved3[0]), tail);
}

void dbgBIHPair(const KXBMINFOHEADER* from, const KXBMINFOHEADER* to) {
    if (!from || !to || !dbgActive(8, 30)) return;
    wchar_t fromFlags[8], toFlags[8], fromCode[8], toCode[8];
    FlagText(from, fromFlags);
    FlagText(to, toFlags);
    const KXBMINFOHEADER* sides[2] = {from, to};
    wchar_t* codes[2] = {fromCode, toCode};
    for (int s = 0; s < 2; ++s) {
        uint32_t c = sides[s]->biCompression;
        if (c == KXBI_RGB)
            kelpFormat(codes[s], 8, L"RGB");
        else
            kelpFormat(codes[s], 8, L"%hc%hc%hc%hc", CodeChar(c, 0), CodeChar(c, 1), CodeChar(c, 2),
                       CodeChar(c, 3));
    }
    dbgPrintf(8, 30, L"(%d,%s,%d,%d,%d,%d,%d,%d,%s)->(%d,%s,%d,%d,%d,%d,%d,%d,%s)\r\n",
              int(from->biSize), fromCode, int(from->biPlanes), int(from->biBitCount),
              from->biWidth, from->biHeight, int(from->bmiRatioX), int(from->bmiRatioY), fromFlags,
              int(to->biSize), toCode, int(to->biPlanes), int(to->biBitCount), to->biWidth,
              to->biHeight, int(to->bmiRatioX), int(to->bmiRatioY), toFlags);
}

} // namespace kelp
