// The DV codec: DV25 ('DVSD') or DVCPRO25/50 ('DVCS') frames, NTSC and PAL,
// decompressed to and compressed from BGR 24 and 32 bits through libavcodec, with the
// colour conversion by libswscale. One object serves one of the two format codes.
#pragma once

#include "common/codecbase.h"
#include "dvvariant.h"

namespace dv {

class CDvCodec final : public cdc::CPluginCodec {
public:
    explicit CDvCodec(uint32_t fourcc) : m_fourcc(fourcc) {}

    KXRESULT Configure(uintptr_t code, uintptr_t value, uintptr_t extra) override;
    KXRESULT Notify(uintptr_t code, uintptr_t value, uintptr_t hSession) override;

    KXRESULT DecompressGetFormat(const KXBMINFOHEADER* src, uintptr_t out, uintptr_t room,
                                 uintptr_t bits) override;
    KXRESULT DecompressQuery(const KXBMINFOHEADER* src, const KXBMINFOHEADER* dst) override;
    KXRESULT DecompressBegin(const KXBMINFOHEADER* src, KXBMINFOHEADER* dst,
                             uintptr_t* phSession) override;
    KXRESULT Decompress(const KXBMINFOHEADER* src, const void* srcBits, KXBMINFOHEADER* dst,
                        uintptr_t out, uintptr_t room, uintptr_t written,
                        uintptr_t hSession) override;
    KXRESULT DecompressEnd(uintptr_t hSession) override;

    KXRESULT CompressGetFormat(uintptr_t src, uintptr_t out, uintptr_t room) override;
    KXRESULT CompressQuery(const KXBMINFOHEADER* src, const KXBMINFOHEADER* dst) override;
    KXRESULT CompressBegin(const KXBMINFOHEADER* src, KXBMINFOHEADER* dst,
                           uintptr_t* phSession) override;
    KXRESULT Compress(const KXBMINFOHEADER* src, const void* srcBits, KXBMINFOHEADER* dst,
                      uintptr_t out, uintptr_t room, uintptr_t written,
                      uintptr_t hSession) override;
    KXRESULT CompressEnd(uintptr_t hSession) override;

private:
    // The variant a compressed record of this codec stands for, or null.
    const Variant* VariantOf(const KXBMINFOHEADER* d) const;

    uint32_t m_fourcc;
};

// True if this build's libavcodec has the DV decoder and encoder.
bool CodecsAvailable();

} // namespace dv
