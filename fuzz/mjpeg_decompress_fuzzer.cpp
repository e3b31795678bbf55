// Fuzzes the Motion-JPEG plug-in's decompress path. Input: one mode byte (bit 0: 32-bit
// output, bit 1: top-down, bit 2: a record one pixel wider than the picture), then the
// frame. The record gets the picture size the frame's own header claims, so that most
// inputs reach the decoder.
#include <turbojpeg.h>

#include "decompress_harness.h"
#include "mjpeg/mjpegcodec.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint8_t mode = data[0];
    const uint8_t* frame = data + 1;
    const uint32_t length = uint32_t(size - 1);

    int width = 16, height = 16, subsamp = 0, colorspace = 0;
    if (tjhandle tj = tjInitDecompress()) {
        tjDecompressHeader3(tj, frame, length, &width, &height, &subsamp, &colorspace);
        tjDestroy(tj);
    }
    // Keep the output small enough for a fuzzer's memory limit.
    if (width <= 0 || height <= 0 || width > 1024 || height > 1024) width = height = 16;
    if (mode & 4) ++width;

    mjpeg::CMJpegCodec codec;
    const KXBMINFOHEADER rec = fuzzharness::Record(width, height, 24, mjpeg::kFourcc, length);
    fuzzharness::DecompressOnce(codec, rec, frame, mode);
    return 0;
}
