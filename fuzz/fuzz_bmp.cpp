// The BMP reader under libFuzzer.
#include "fuzz_reader.h"
#include "imagefile/bmpio.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzReader(kelp::imgfile::BmpBackend(), L"", data, size);
    return 0;
}
