#include "dvvariant.h"

namespace dv {
namespace {

// The frame sizes follow from the structure: 80-byte blocks, 150 blocks a sequence,
// 10 sequences a channel at 525/60 and 12 at 625/50.
constexpr uint32_t kBlock = 80;
constexpr uint32_t kBlocksPerSequence = 150;

const Variant kVariants[] = {
    {kDVSD, 720, 480, 25, Chroma::k411, 120000, 30000, 1001, 10, 1, "DV25 NTSC"},
    {kDVSD, 720, 576, 25, Chroma::k420, 144000, 25, 1, 12, 1, "DV25 PAL"},
    {kDVCS, 720, 480, 25, Chroma::k411, 120000, 30000, 1001, 10, 1, "DVCPRO25 NTSC"},
    {kDVCS, 720, 576, 25, Chroma::k411, 144000, 25, 1, 12, 1, "DVCPRO25 PAL"},
    {kDVCS, 720, 480, 50, Chroma::k422, 240000, 30000, 1001, 10, 2, "DVCPRO50 NTSC"},
    {kDVCS, 720, 576, 50, Chroma::k422, 288000, 25, 1, 12, 2, "DVCPRO50 PAL"},
};

static_assert(120000 == 10 * kBlocksPerSequence * kBlock, "525/60 frame");
static_assert(144000 == 12 * kBlocksPerSequence * kBlock, "625/50 frame");

// Section types of the blocks of one sequence, by block number: one header, two
// subcode, three auxiliary, then nine times one audio and fifteen video blocks.
enum Section : uint8_t { kHeader = 0, kSubcode = 1, kVaux = 2, kAudio = 3, kVideo = 4 };

Section SectionOfBlock(uint32_t block) {
    if (block == 0) return kHeader;
    if (block < 3) return kSubcode;
    if (block < 6) return kVaux;
    return (block - 6) % 16 == 0 ? kAudio : kVideo;
}

} // namespace

uint32_t NormalFourcc(uint32_t fourcc) {
    // Upper-case the letters: 'dvsd' is the common spelling in files.
    uint32_t out = 0;
    for (int i = 0; i < 4; ++i) {
        uint32_t c = (fourcc >> (8 * i)) & 0xFF;
        if (c >= 'a' && c <= 'z') c -= 'a' - 'A';
        out |= c << (8 * i);
    }
    return out;
}

const Variant* FindVariant(uint32_t fourcc, int32_t width, int32_t height, uint32_t sizeImage) {
    const uint32_t fcc = NormalFourcc(fourcc);
    const int32_t lines = height < 0 ? int32_t(0u - uint32_t(height)) : height;
    for (const Variant& v : kVariants) {
        if (v.fourcc != fcc || v.width != width || v.height != lines) continue;
        if (sizeImage == 0 ? v.mbps == 25 : sizeImage == v.frameBytes) return &v;
    }
    return nullptr;
}

bool CheckFrameStructure(const Variant& v, const uint8_t* data, uint32_t size) {
    if (!data || size != v.frameBytes) return false;
    const uint32_t sequences = v.sequences * v.channels;
    for (uint32_t seq = 0; seq < sequences; ++seq) {
        const uint8_t* s = data + seq * kBlocksPerSequence * kBlock;
        for (uint32_t b = 0; b < kBlocksPerSequence; ++b) {
            const uint8_t* id = s + b * kBlock;
            if ((id[0] >> 5) != SectionOfBlock(b)) return false;
            if ((id[1] >> 4) != seq % v.sequences) return false;
        }
        // The header block says 625/50 (bit 7 of its fourth byte) or 525/60.
        const bool pal = (s[3] & 0x80) != 0;
        if (pal != (v.sequences == 12)) return false;
    }
    return true;
}

} // namespace dv
