// The entry of "dv.cdc": offers the DV25 codec ('DVSD') and the DVCPRO codec ('DVCS'),
// if the libavcodec it runs with has the DV decoder and encoder.
#include <dlfcn.h>

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

} // namespace

KXCODEC_PLUGIN_ENTRY KXRESULT EnumerateCodecs(kelp::ICodecManager* manager, uint32_t version) {
    if (!cdc::EntryArgumentsValid(manager, version)) return KXE_INVALID;
    if (!dv::CodecsAvailable()) return KXE_NOTIMPL;
    PinLibraryOf(reinterpret_cast<const void*>(&avcodec_version));
    PinLibraryOf(reinterpret_cast<const void*>(&swscale_version));
    PinLibraryOf(reinterpret_cast<const void*>(&avutil_version));
    cdc::OfferCodec(manager, dv::kDVSD, new (std::nothrow) dv::CDvCodec(dv::kDVSD));
    cdc::OfferCodec(manager, dv::kDVCS, new (std::nothrow) dv::CDvCodec(dv::kDVCS));
    return KX_OK;
}
