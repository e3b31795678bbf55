// The image dump of the trace facility: an image written to a ".bmp" file for
// inspection, in the system's temporary directory.
#include <kelp/imageio.h>
#include <kelp/trace.h>

#include "runtime/kelpos.h"

namespace kelp {

void dbgBMP(int area, int level, const wchar_t* name, const tagKXBMINFOHEADER* bih,
            const void* bits) {
    if (!dbgActive(area, level)) return;
    IImageIO* io = CreateImageIO(KXIMAGEIO_VERSION, nullptr);
    if (!io) return;
    // Flattened to 24 bits first, so that any viewer opens it.
    ImageSaveOptions options = {};
    options.dwSize = sizeof options;
    options.dwFlags = IMAGESAVE_FLATTEN24;
    wchar_t path[260];
    kelpFormat(path, 260, L"%s%s.bmp", os::TempDirectory().c_str(), name ? name : L"");
    // A missing directory or any other failure loses the dump, silently.
    io->SaveImage(path, bih, bits, &options);
    io->Release();
}

} // namespace kelp
