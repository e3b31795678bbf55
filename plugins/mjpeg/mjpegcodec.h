// The Motion-JPEG codec: one JPEG image per frame ('MJPG'), decompressed to and
// compressed from BGR 24 and 32 bits through TurboJPEG.
#pragma once

#include "common/codecbase.h"

namespace mjpeg {

constexpr uint32_t kFourcc = KXFOURCC('M', 'J', 'P', 'G');

class CMJpegCodec final : public cdc::CPluginCodec {
public:
    static constexpr uint32_t kDefaultQuality = 90;

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
    uint32_t m_quality = kDefaultQuality; // taken by every session begun from now on
};

} // namespace mjpeg
