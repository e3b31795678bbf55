// The entry of "dv.cdc": offers the DV25 codec ('DVSD') and the DVCPRO codec ('DVCS'),
// if the libavcodec it runs with has the DV decoder and encoder.
#include <new>

#include "dvcodec.h"

namespace {
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
    Offer(manager, dv::kDVSD);
    Offer(manager, dv::kDVCS);
    return KX_OK;
}
