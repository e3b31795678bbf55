// The record a codec manager hands its caller in place of a codec's own session handle:
// which codec began the session, and the handle that codec gave.
#pragma once

#include <kelp/kxcodec.h>
#include <kelp/mpheap.h>

namespace kelp {

struct CodecSession : public CKELPHeapObject {
    ICodec* pCodec;
    uintptr_t hSession;

    CodecSession(ICodec* codec, uintptr_t handle) : pCodec(codec), hSession(handle) {}
};

// A manager's handle is the record's address.
inline CodecSession* SessionFromHandle(uintptr_t h) {
    return reinterpret_cast<CodecSession*>(h);
}

} // namespace kelp
