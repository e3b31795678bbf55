// Fuzzes the DV plug-in's decompress path. Input: one mode byte (bits 0-1: output form,
// bits 2-4: the variant, bit 5: raw), then the frame's bytes.
// - raw: the input is the frame as it stands (nearly always refused by the structure
//   check, which is what is tested then).
// - otherwise: a frame of the variant's size is made with the right block structure
//   (section types and sequence numbers), and everything else comes from the input,
//   repeated, so that the decoder itself sees fuzzed blocks.
#include <vector>

#include "decompress_harness.h"
#include "dv/dvcodec.h"

namespace {

struct Form {
    uint32_t fcc;
    int32_t height;
    uint32_t bytes;
    uint32_t sequences;
};
const Form kForms[] = {
    {dv::kDVSD, 576, 144000, 12}, {dv::kDVSD, 480, 120000, 10}, {dv::kDVCS, 576, 144000, 12},
    {dv::kDVCS, 480, 120000, 10}, {dv::kDVCS, 576, 288000, 24}, {dv::kDVCS, 480, 240000, 20},
};

uint8_t Section(uint32_t block) {
    if (block == 0) return 0;
    if (block < 3) return 1;
    if (block < 6) return 2;
    return (block - 6) % 16 == 0 ? 3 : 4;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint8_t mode = data[0];
    const Form& form = kForms[((mode >> 2) & 7) % 6];
    const uint8_t* body = data + 1;
    const size_t length = size - 1;

    std::vector<uint8_t> frame;
    if (mode & 0x20) {
        frame.assign(body, body + length);
    } else {
        frame.resize(form.bytes);
        for (size_t i = 0; i < frame.size(); ++i)
            frame[i] = body[i % length];
        const uint32_t perChannel = form.sequences > 12 ? form.sequences / 2 : form.sequences;
        for (uint32_t seq = 0; seq < form.sequences; ++seq) {
            uint8_t* s = &frame[size_t(seq) * 150 * 80];
            for (uint32_t b = 0; b < 150; ++b) {
                uint8_t* id = s + b * 80;
                id[0] = uint8_t((Section(b) << 5) | (id[0] & 0x1F));
                id[1] = uint8_t(((seq % perChannel) << 4) | (id[1] & 0x0F));
            }
            s[3] = uint8_t(form.height == 576 ? (s[3] | 0x80) : (s[3] & 0x7F));
        }
    }

    dv::CDvCodec codec(form.fcc);
    const KXBMINFOHEADER rec =
        fuzzharness::Record(720, form.height, 24, form.fcc, uint32_t(frame.size()));
    fuzzharness::DecompressOnce(codec, rec, frame.data(), mode);
    return 0;
}
