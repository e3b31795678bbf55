// Fuzzes the run-length mattes. Input: one mode byte, two size bytes (an image of up to
// 64 x 16), then the rest.
//   mode bit 0 clear: the rest is a stream. It is decoded from a heap block of exactly
//     its size into a block of the image's size, then put into the pixels of an 8-bit
//     "ALP1" image and decompressed in place (mode bit 1 clear) or through a new block
//     (set). A refused stream must leave the image as it was.
//   mode bit 0 set: the rest is data. It is encoded, decoded again (the kept bytes must
//     come back), and compressed and decompressed as the pixels of an image.
// Any crash, sanitizer report or broken check (abort) is a finding.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <kelp/stdfx_dib.h>
#include <kelp/stdfx_rle.h>

using stdfx::CDIB;
using stdfx::CDibRLE;

namespace {

void Check(bool ok) {
    if (!ok) std::abort();
}

// An 8-bit image of w x h (rows padded to 4), from a zeroed 160-byte header.
bool MakeMatte(CDIB* dib, int w, int h) {
    unsigned char raw[160] = {};
    auto* r = reinterpret_cast<KXBMINFOHEADER*>(raw);
    r->biSize = KXBMI_SIZE;
    r->biWidth = w;
    r->biHeight = h;
    r->biPlanes = 1;
    r->biBitCount = 8;
    return dib->Create(r);
}

void FuzzStream(int w, int h, bool viaImage, const uint8_t* s, size_t n) {
    // The designed decoder, within exact buffers.
    const uint32_t room = uint32_t((w + 3) / 4 * 4) * uint32_t(h);
    std::vector<uint8_t> in(s, s + n); // exactly n bytes on the heap
    std::vector<uint8_t> out(room ? room : 1);
    uint32_t size = 0, length = 0, checked = 0;
    const bool sound = CDibRLE::CheckStream(in.data(), uint32_t(n), room, &length, &checked);
    const bool decoded = CDibRLE::DecodeWithin(out.data(), room, &size, in.data(), uint32_t(n));
    Check(sound == decoded);
    Check(size <= room);
    if (sound) Check(size == checked && length <= n);
    if (n >= CDibRLE::kHeaderBytes && sound) {
        // The stated sizes hold within the buffers, so the trusting call may run.
        uint32_t raw = 0;
        std::memcpy(&raw, in.data() + 4, 4);
        if (raw <= room) {
            std::vector<uint8_t> out2(raw ? raw : 1);
            CDibRLE rle;
            uint32_t size2 = 0;
            Check(rle.Decode(out2.data(), &size2, in.data()));
            Check(size2 == size && std::memcmp(out2.data(), out.data(), size) == 0);
        }
    }
    // The stream as the pixels of an image.
    {
        CDIB dib;
        if (!MakeMatte(&dib, w, h)) return;
        const size_t put = n < room ? n : room;
        std::memcpy(dib.Bits(), s, put);
        dib.SetFormat(CDibRLE::kFormat, uint32_t(put));
        std::vector<uint8_t> before(static_cast<uint8_t*>(dib.Bits()),
                                    static_cast<uint8_t*>(dib.Bits()) + room);
        CDibRLE rle;
        const bool ok = viaImage ? dib.DecompressAlpha() : rle.Decompress(dib);
        if (!ok) {
            Check(dib.Format() == CDibRLE::kFormat);
            Check(std::memcmp(before.data(), dib.Bits(), room) == 0);
        } else {
            Check(dib.Format() == 0);
        }
    }
}

void FuzzData(int w, int h, const uint8_t* d, size_t n) {
    std::vector<uint8_t> stream(n + CDibRLE::kEncodeSlack);
    CDibRLE rle;
    uint32_t size = 0;
    Check(rle.Encode(stream.data(), &size, d, uint32_t(n)));
    Check(size % 4 == 0 && size <= n + 16 && size >= CDibRLE::kHeaderBytes);
    std::vector<uint8_t> out(n ? n : 1);
    uint32_t got = 0;
    Check(CDibRLE::DecodeWithin(out.data(), uint32_t(n), &got, stream.data(), size));
    Check(got <= n && std::memcmp(out.data(), d, got) == 0);
    if (n >= 2 && d[n - 1] == d[n - 2]) Check(got == n);
    // The data as the pixels of an image, when it fills one.
    CDIB dib;
    if (!MakeMatte(&dib, w, h)) return;
    const uint32_t room = stdfx::DIBImageSize(dib.Header());
    std::memset(dib.Bits(), d[0], room);
    std::memcpy(dib.Bits(), d, n < room ? n : room);
    std::vector<uint8_t> before(static_cast<uint8_t*>(dib.Bits()),
                                static_cast<uint8_t*>(dib.Bits()) + room);
    Check(dib.CompressAlpha());
    Check(dib.DecompressAlpha());
    const auto* p = static_cast<const uint8_t*>(dib.Bits());
    if (room >= 2 && before[room - 1] == before[room - 2])
        Check(std::memcmp(before.data(), p, room) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    const uint8_t mode = data[0];
    const int w = 1 + data[1] % 64, h = 1 + data[2] % 16;
    if (mode & 1)
        FuzzData(w, h, data + 3, size - 3);
    else
        FuzzStream(w, h, (mode & 2) != 0, data + 3, size - 3);
    return 0;
}
