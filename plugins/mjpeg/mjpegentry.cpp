// The entry of "mjpeg.cdc": offers the one Motion-JPEG codec.
#include <new>

#include "mjpegcodec.h"

KXCODEC_PLUGIN_ENTRY KXRESULT EnumerateCodecs(kelp::ICodecManager* manager, uint32_t version) {
    if (!manager || version != kelp::KXCODEC_VERSION) return KXE_INVALID;
    auto* codec = new (std::nothrow) mjpeg::CMJpegCodec;
    if (!codec) return KXE_OUTOFMEMORY;
    // A codec the manager refuses is neither kept nor released by it.
    if (manager->AddCodec(mjpeg::kFourcc, codec) < 0) {
        codec->Release();
        return KXE_INVALID;
    }
    return KX_OK;
}
