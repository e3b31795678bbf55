// The PCX reader under libFuzzer.
#include "fuzz_reader.h"
#include "imagefile/pcxio.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzReader(kelp::imgfile::PcxBackend(), L"", data, size);
    return 0;
}
