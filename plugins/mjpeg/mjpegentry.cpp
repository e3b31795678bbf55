// The entry of "mjpeg.cdc": offers the one Motion-JPEG codec.
#include "mjpegcodec.h"

KXCODEC_PLUGIN_ENTRY KXRESULT EnumerateCodecs(kelp::ICodecManager* manager, uint32_t version) {
    if (!cdc::EntryArgumentsValid(manager, version)) return KXE_INVALID;
    return cdc::OfferCodec(manager, mjpeg::kFourcc, new (std::nothrow) mjpeg::CMJpegCodec);
}
