// Uses the installed library through its one umbrella header only.
#include <kelp/kelp.h>

#include <cstdio>
#include <cstring>

int main() {
    kelp::IConversionManager* cm = KXCONVCreateConversionManager();
    if (!cm) return 1;
    cm->Init(0x10002, 0);
    KXBMINFOHEADER bih;
    memset(&bih, 0, sizeof bih);
    bih.biSize = sizeof bih;
    bih.biWidth = 4;
    bih.biHeight = 2;
    bih.biPlanes = 1;
    bih.biBitCount = 32;
    bih.biSizeImage = 32;
    KXBMINFOHEADER out = bih;
    unsigned char pixels[32] = {1, 2, 3, 4};
    void* outData = nullptr;
    uint32_t flags = KXCONV_KEEP_INPUT;
    int32_t quality = 0;
    KXRESULT r = cm->Convert(&bih, pixels, &out, &outData, &flags, &quality,
                             kelp::GetCppAllocator());
    cm->Release();
    if (r != KX_OK || outData != pixels || !(flags & KXCONV_OUT_IDENTITY)) return 2;
    std::printf("consumer ok\n");
    return 0;
}
