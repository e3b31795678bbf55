// The entry of "dv.cdc": offers the DV25 codec ('DVSD') and the DVCPRO codec ('DVCS'),
// if the libavcodec it runs with has the DV decoder and encoder.
#include <dlfcn.h>

#include <new>

#include "dvcodec.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/avutil.h>
#include <libswscale/swscale.h>
}

namespace {

// libavcodec, libswscale and libavutil (with what they load) keep allocations of their
// own for the life of the process and never free them: unloaded with this plug-in, they
// would lose them, again at every load. Once loaded they stay, while the plug-in itself
// still leaves with the last manager.
void PinLibraryOf(const void* symbol) {
    Dl_info info;
    if (dladdr(symbol, &info) && info.dli_fname)
        dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
}

void Offer(kelp::ICodecManager* manager, uint32_t fourcc) {
    auto* codec = new (std::nothrow) dv::CDvCodec(fourcc);
    if (!codec) return;
    // A codec the manager refuses is neither kept nor released by it.
    if (manager->AddCodec(fourcc, codec) < 0) codec->Release();
}
} // namespace

KXCODEC_PLUGIN_ENTRY KXRESULT EnumerateCodecs(kelp::ICodecManager* manager, uint32_t version) {
    if (!manager || version != kelp::KXCODEC_VERSION) return KXE_INVALID;
    if (!dv::CodecsAvailable()) return KXE_NOTIMPL;
    PinLibraryOf(reinterpret_cast<const void*>(&avcodec_version));
    PinLibraryOf(reinterpret_cast<const void*>(&swscale_version));
    PinLibraryOf(reinterpret_cast<const void*>(&avutil_version));
    Offer(manager, dv::kDVSD);
    Offer(manager, dv::kDVCS);
    return KX_OK;
}
