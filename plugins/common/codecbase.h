// The skeleton that every codec of the shipped plug-ins shares: the end of the object,
// the contract version, the priority, Open and Close, the pair of tagged sessions with
// their begin and end, and the offer of a codec from a plug-in's entry. A codec derives
// from CPluginCodec and writes only what is its own: Configure, Notify and the
// compression and decompression operations. Header-only, like the rest of common/.
#pragma once

#include "common/cdcplugin.h"

#include <new>

namespace cdc {

class CPluginCodec : public kelp::ICodec {
public:
    static constexpr uint32_t kPriority = 100;

    void Release() override { delete this; }
    uint32_t GetVersion() override { return kelp::KXCODEC_VERSION; }
    uint32_t GetPriority() override { return kPriority; }
    // No codec here holds anything between sessions: there is nothing to open or close.
    KXRESULT Open() override { return KX_OK; }
    KXRESULT Close() override { return KX_OK; }
};

// A session object begins with a tag, so that a handle of the wrong kind or of the other
// direction is refused instead of being used. The tag is cleared when the session ends.
constexpr uint32_t kDecompressTag = 0x44434453; // "SDCD"
constexpr uint32_t kCompressTag = 0x43434453;   // "SDCC"

template <uint32_t Tag> struct TaggedSession {
    static constexpr uint32_t kTag = Tag;
    uint32_t tag = Tag;
    ~TaggedSession() { tag = 0; }
};
// A codec's two session records derive from these.
using DecompressSessionBase = TaggedSession<kDecompressTag>;
using CompressSessionBase = TaggedSession<kCompressTag>;

// The session behind a handle, or null if the handle is not one of this kind.
template <class Session> Session* SessionOf(uintptr_t h) {
    auto* s = reinterpret_cast<Session*>(h);
    return (s && s->tag == Session::kTag) ? s : nullptr;
}

// Makes a session, lets `init` fill it (its status below 0 ends the session again) and
// hands the caller its handle.
template <class Session, class Init> KXRESULT BeginSession(uintptr_t* phSession, Init&& init) {
    if (!phSession) return KXE_INVALID;
    auto* s = new (std::nothrow) Session;
    if (!s) return KXE_OUTOFMEMORY;
    const KXRESULT rc = init(*s);
    if (rc < 0) {
        delete s;
        return rc;
    }
    *phSession = reinterpret_cast<uintptr_t>(s);
    return KX_OK;
}

// Ends the session behind a handle of this kind; the session's destructor frees what it
// holds.
template <class Session> KXRESULT EndSession(uintptr_t h) {
    Session* s = SessionOf<Session>(h);
    if (!s) return KXE_INVALID;
    delete s;
    return KX_OK;
}

// What a plug-in's entry checks before it offers anything.
inline bool EntryArgumentsValid(const kelp::ICodecManager* manager, uint32_t version) {
    return manager && version == kelp::KXCODEC_VERSION;
}

// Offers a codec to the manager. A codec the manager refuses is neither kept nor released
// by it, so it is released here.
inline KXRESULT OfferCodec(kelp::ICodecManager* manager, uint32_t fourcc, kelp::ICodec* codec) {
    if (!codec) return KXE_OUTOFMEMORY;
    if (manager->AddCodec(fourcc, codec) < 0) {
        codec->Release();
        return KXE_INVALID;
    }
    return KX_OK;
}

} // namespace cdc
