// The DV variants the DV codec handles, and a check of a frame's block structure.
#pragma once

#include <kelp/kelpdefs.h>

#include <cstdint>

namespace dv {

constexpr uint32_t kDVSD = KXFOURCC('D', 'V', 'S', 'D'); // DV25 (IEC 61834)
constexpr uint32_t kDVCS = KXFOURCC('D', 'V', 'C', 'S'); // DVCPRO25 and DVCPRO50

// Chroma layouts of the variants (the decoder's planar formats).
enum class Chroma { k411, k420, k422 };

struct Variant {
    uint32_t fourcc;
    int32_t width;
    int32_t height;
    uint32_t mbps; // 25 or 50
    Chroma chroma;
    uint32_t frameBytes; // one whole frame
    int rateNum;         // frame rate as a fraction
    int rateDen;
    uint32_t sequences; // DIF sequences of one channel
    uint32_t channels;  // 1 at 25 Mbit/s, 2 at 50
    const char* name;
};

// The variant that a record of `fourcc` (either case), `height` lines (sign ignored) and
// `sizeImage` bytes stands for. A sizeImage of 0 means the 25 Mbit/s form. Null if the
// record is none of them.
const Variant* FindVariant(uint32_t fourcc, int32_t width, int32_t height, uint32_t sizeImage);

// True if `size` bytes hold a frame with the block structure of `v`: every DIF sequence of
// every channel made of its 150 blocks, header, subcode, auxiliary, audio and video in
// their fixed places, each block carrying its sequence number. The decoder itself
// accepts nearly any bytes; this check turns a damaged or foreign frame into a failure.
bool CheckFrameStructure(const Variant& v, const uint8_t* data, uint32_t size);

// The codec's own format code for either spelling of it.
uint32_t NormalFourcc(uint32_t fourcc);

} // namespace dv
