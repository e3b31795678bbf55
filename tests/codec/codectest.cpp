// The shared part of the codec tests, and the function through which the test plug-ins
// report their events (exported by the test program).
#include "codectest.h"

#include <dlfcn.h>

#include <cstring>

extern "C" __attribute__((visibility("default"))) void kelptest_CodecEvent(const char* what) {
    codectest::Events().push_back(what);
}

namespace codectest {

std::vector<std::string>& Events() {
    static std::vector<std::string> events;
    return events;
}

bool IsLoaded(const std::string& path) {
    void* h = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (!h) return false;
    dlclose(h);
    return true;
}

std::string CodecName(kelp::ICodec* codec) {
    kelp::KXCODECDESC d;
    std::memset(&d, 0, sizeof(d));
    d.dwSize = sizeof(d);
    if (codec->Configure(kelp::KXCODEC_CFG_DESCRIBE, reinterpret_cast<uintptr_t>(&d), sizeof(d)) !=
        KX_OK)
        return "?";
    return std::string(reinterpret_cast<const char*>(&d.fccCodec), 4);
}

KXBMINFOHEADER Record(uint32_t fcc, uint32_t sizeImage) {
    KXBMINFOHEADER d;
    std::memset(&d, 0, sizeof(d));
    d.biSize = KXBMI_SIZE;
    d.biWidth = 64;
    d.biHeight = 48;
    d.biPlanes = 1;
    d.biBitCount = 24;
    d.biCompression = fcc;
    d.biSizeImage = sizeImage;
    d.bmiMagic = KXBMI_MAGIC;
    return d;
}

} // namespace codectest
