// The PSD reader under libFuzzer.
#include "fuzz_reader.h"
#include "imagefile/psdio.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzReader(kelp::imgfile::PsdBackend(), L"", data, size);
    return 0;
}
