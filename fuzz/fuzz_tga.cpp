// The TGA reader under libFuzzer.
#include "fuzz_reader.h"
#include "imagefile/tgaio.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzReader(kelp::imgfile::TgaBackend(), L"tga", data, size);
    return 0;
}
