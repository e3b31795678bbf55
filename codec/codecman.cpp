#include "codecman.h"

#include <kelp/kelpcfg.h>
#include <kelp/trace.h>

#include <algorithm>
#include <new>
#include <string>
#include <utility>

#include "guard.h"
#include "registry.h"
#include "runtime/kelpos.h"
#include "session.h"

namespace kelp {
namespace {

// The four characters of a format code from the low byte up, for "%hc%hc%hc%hc".
#define KX_FOURCC_ARGS(fcc)                                                                        \
    int((fcc)&0xFF), int(((fcc) >> 8) & 0xFF), int(((fcc) >> 16) & 0xFF), int(((fcc) >> 24) & 0xFF)

// True if [p, p + size) lies in the 4 KiB block of p, and so in one page of any size the
// system uses: a probe of p answered for all of it.
bool OnePage(const void* p, size_t size) {
    const uintptr_t a = uintptr_t(p);
    return size > 0 && a + size - 1 >= a && ((a ^ (a + size - 1)) >> 12) == 0;
}

// A descriptor is used only if its first word and then its declared size can be read.
// Beyond the probe, the declared size must cover the Windows part of the record, which
// every codec reads.
bool ValidBIH(const KXBMINFOHEADER* d) {
    if (!os::IsReadable(d, 4) || d->biSize < sizeof(KXWINBITMAPINFOHEADER) ||
        (!OnePage(d, d->biSize) && !os::IsReadable(d, d->biSize))) {
        dbgPrintf(8, 2, L"CCodecManager::Invalid BIH!");
        return false;
    }
    return true;
}

// The source pixels must be readable over the image size of their descriptor: its
// biSizeImage, or the size its rows make when that is 0.
bool ValidBuffer(const KXBMINFOHEADER* src, const void* bits) {
    int64_t size = src->biSizeImage;
    if (size == 0) {
        size = DIBSize(src);
        if (size < 0) size = -size;
    }
    if (!bits || !os::IsReadable(bits, size_t(size))) {
        dbgPrintf(8, 2, L"CCodec::Invalid Buffer!");
        return false;
    }
    return true;
}

void TraceRecords(const KXBMINFOHEADER* src, const KXBMINFOHEADER* dst) {
    dbgBIH(8, 29, L"Input BIH", src, pszNL);
    if (dst) dbgBIH(8, 29, L"Output BIH", dst, pszNL);
}

uint32_t PriorityOf(ICodec* c) {
    return codec::Guarded<uint32_t>(0, [&] { return c->GetPriority(); });
}

} // namespace

// ---------------------------------------------------------------- life

CCodecManager::CCodecManager() : m_dwMaxOpen(kDefaultMaxOpen), m_pAllocator(nullptr) {
    codec::Registry* r = codec::TheRegistry();
    CKELPAutoLock lock(r ? &r->lock : nullptr);
    if (r && ++r->useCount == 1) InitGlobal();
    m_pAllocator = new (std::nothrow) CDualAllocator();
}

CCodecManager::~CCodecManager() {
    Shutdown();
    delete m_pAllocator;
    m_pAllocator = nullptr;
    codec::Registry* r = codec::TheRegistry();
    if (!r) return;
    CKELPAutoLock lock(&r->lock);
    if (r->useCount != 0 && --r->useCount == 0) EndGlobal();
}

void CCodecManager::Release() {
    delete this;
}

int CCodecManager::InitGlobal() {
    codec::Registry& r = *codec::TheRegistry();
    // The settings exist, with their file chosen afresh, before any plug-in runs.
    KELPGetCfg(true);
    dbgPrintf(8, 29, L"KXCODEC::InitGlobal\r\n");

    const std::wstring dir = codec::PluginDirectory();
    for (const std::wstring& name : os::ListFiles(dir, L".cdc")) {
        const std::wstring path = dir + name;
        uint32_t error = 0;
        std::string reason;
        KXMODULE module = os::LoadModuleReporting(path, &error, &reason);
        if (!module) {
            dbgPrintf(8, 2, L"KXCODEC: Unable to load: %s (%x)!\r\n", path.c_str(), error);
            dbgPrintf(8, 29, L"KXCODEC: %hs\r\n", reason.c_str());
            continue;
        }
        auto entry =
            reinterpret_cast<PFN_ENUMERATECODECS>(os::GetSymbol(module, KXCODEC_ENTRY_NAME));
        if (!entry) {
            dbgPrintf(8, 2, L"KXCODEC: Unable to load: %s (no Enum Function)!\r\n", path.c_str());
            os::FreeModule(module);
            continue;
        }
        const size_t before = m_codecs.size();
        // An exception from the entry is swallowed: what it added before stands.
        codec::Guarded<KXRESULT>(KXE_FAIL, [&] { return entry(this, KXCODEC_VERSION); });
        if (m_codecs.size() > before) {
            r.modules.push_back(module);
        } else {
            dbgPrintf(8, 2, L"KXCODEC: Unable to load: %s (no Codec added)!\r\n", path.c_str());
            os::FreeModule(module);
        }
    }

    if (m_codecs.empty()) {
        dbgPrintf(8, 2, L"KXCODEC: No codecs found!\r\n");
        return 0;
    }
    r.codecs.insert(r.codecs.end(), m_codecs.begin(), m_codecs.end());
    m_codecs.clear();
    return 1;
}

void CCodecManager::EndGlobal() {
    codec::Registry& r = *codec::TheRegistry();
    dbgPrintf(8, 29, L"KXCODEC::EndGlobal\r\n");
    // Every codec goes before any plug-in is unloaded.
    for (ICodec* c : r.codecs)
        codec::Guarded<int>(0, [&] {
            c->Release();
            return 0;
        });
    r.codecs.clear();
    for (KXMODULE m : r.modules)
        os::FreeModule(m);
    r.modules.clear();
}

// ---------------------------------------------------------------- the registry's side

KXRESULT CCodecManager::AddCodec(uint32_t fourcc, ICodec* codec) {
    dbgPrintf(8, 29, L"KXCODEC::AddCodec: '%hc%hc%hc%hc'\r\n", KX_FOURCC_ARGS(fourcc));
    const uint32_t version =
        codec ? codec::Guarded<uint32_t>(0, [&] { return codec->GetVersion(); }) : 0;
    if (version != KXCODEC_VERSION) {
        dbgPrintf(8, 2, L"KXCODEC::AddCodec: '%hc%hc%hc%hc' has invalid version!\r\n",
                  KX_FOURCC_ARGS(fourcc));
        return KXE_INVALID;
    }
    m_codecs.push_back(codec);
    return KX_OK;
}

KXRESULT CCodecManager::Init(uint32_t, const CodecManagerInit* options) {
    // The global list does not change between the first manager's construction and the
    // last one's end, so it is read without the lock.
    codec::Registry* r = codec::TheRegistry();
    std::vector<std::pair<uint32_t, ICodec*>> ranked;
    if (r) {
        ranked.reserve(r->codecs.size());
        for (ICodec* c : r->codecs)
            ranked.emplace_back(PriorityOf(c), c);
    }
    // Highest priority first; of equal ones, the one added earlier stays earlier.
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    m_codecs.clear();
    for (const auto& rc : ranked)
        m_codecs.push_back(rc.second);

    m_open.clear(); // without Close: codecs open before stay open, unnoticed
    m_dwMaxOpen = kDefaultMaxOpen;
    if (options && os::IsReadable(options, sizeof(*options)) &&
        options->dwSize == sizeof(CodecManagerInit))
        m_dwMaxOpen = options->dwMaxOpen < 2 ? 1 : options->dwMaxOpen;
    return KX_OK;
}

KXRESULT CCodecManager::Shutdown() {
    for (ICodec* c : m_open)
        codec::GuardedStatus([&] { return c->Close(); });
    m_open.clear();
    m_codecs.clear();
    return KX_OK;
}

ICodec* CCodecManager::GetCodec(uint32_t index) {
    if (!(index < GetCodecCount())) dbgAssert("dwIndex< GetCodecCount()", ".\\codecman", 252, 8);
    return index < m_codecs.size() ? m_codecs[index] : nullptr;
}

ICodec* CCodecManager::LocateCodec(const KXBMINFOHEADER* desc) {
    if (!ValidBIH(desc)) return nullptr;
    dbgPrintf(8, 29, L"KXCODEC::LocateCodec: '%hc%hc%hc%hc'\r\n",
              KX_FOURCC_ARGS(desc->biCompression));
    // Every codec is asked, so that every match leaves its trace; the first of the
    // highest priority wins.
    ICodec* best = nullptr;
    uint32_t bestPriority = 0;
    for (ICodec* c : m_codecs) {
        if (codec::GuardedStatus([&] { return c->DecompressQuery(desc, nullptr); }) != KX_OK)
            continue;
        const uint32_t priority = PriorityOf(c);
        dbgPrintf(8, 29, L"KXCODEC::LocateCodec: Codec found (%d)!\r\n", int(priority));
        if (!best || bestPriority < priority) {
            best = c;
            bestPriority = priority;
        }
    }
    if (!best) {
        dbgPrintf(8, 2, L"KXCODEC::LocateCodec: Codec not found!\r\n");
        dbgBIH(8, 29, L"Input BIH", desc, pszNL);
    }
    return best;
}

// ---------------------------------------------------------------- the open list

KXRESULT CCodecManager::OpenCodec(ICodec* codec) {
    if (std::find(m_open.begin(), m_open.end(), codec) != m_open.end()) return KX_OK;
    const KXRESULT hr = codec::GuardedStatus([&] { return codec->Open(); });
    if (hr < 0) return hr;
    m_open.push_back(codec);
    if (m_open.size() > m_dwMaxOpen) {
        ICodec* oldest = m_open.front();
        m_open.erase(m_open.begin());
        codec::GuardedStatus([&] { return oldest->Close(); });
    }
    return hr;
}

KXRESULT CCodecManager::CloseCodec(ICodec* codec) {
    auto it = std::find(m_open.begin(), m_open.end(), codec);
    if (it == m_open.end()) return KXE_FAIL;
    m_open.erase(it);
    return codec::GuardedStatus([&] { return codec->Close(); });
}

// ---------------------------------------------------------------- the universal codec

KXRESULT CCodecManager::Notify(uintptr_t arg1, uintptr_t arg2, uintptr_t hSession) {
    CodecSession* s = SessionFromHandle(hSession);
    if (s && s->pCodec)
        return codec::GuardedStatus([&] { return s->pCodec->Notify(arg1, arg2, s->hSession); });
    for (ICodec* c : m_codecs)
        codec::GuardedStatus([&] { return c->Notify(arg1, arg2, hSession); });
    return KX_OK;
}

KXRESULT CCodecManager::DecompressGetFormat(const KXBMINFOHEADER* src, uintptr_t arg1,
                                            uintptr_t arg2, uintptr_t arg3) {
    ICodec* c = LocateCodec(src);
    if (!c) return KXE_INVALID;
    const KXRESULT hr =
        codec::GuardedStatus([&] { return c->DecompressGetFormat(src, arg1, arg2, arg3); });
    if (hr < 0) {
        dbgPrintf(8, 29, L"KXCODEC::DecompressGetFormat failed!\n");
        TraceRecords(src, nullptr);
    }
    return hr;
}

KXRESULT CCodecManager::DecompressQuery(const KXBMINFOHEADER* src, const KXBMINFOHEADER* dst) {
    ICodec* c = LocateCodec(src);
    if (!c) return KXE_INVALID;
    if (dst && !ValidBIH(dst)) return KXE_INVALID;
    const KXRESULT hr = codec::GuardedStatus([&] { return c->DecompressQuery(src, dst); });
    if (hr < 0) {
        // The wording of the format query is kept here on purpose.
        dbgPrintf(8, 29, L"KXCODEC::DecompressGetFormat failed!\n");
        TraceRecords(src, dst);
    }
    return hr;
}

KXRESULT CCodecManager::CompressQuery(const KXBMINFOHEADER* src, const KXBMINFOHEADER* dst) {
    // A compressor is found by what it produces.
    ICodec* c = LocateCodec(dst);
    if (!c) return KXE_INVALID;
    if (!ValidBIH(src)) return KXE_INVALID;
    const KXRESULT hr = codec::GuardedStatus([&] { return c->CompressQuery(src, dst); });
    if (hr < 0) {
        dbgPrintf(8, 29, L"KXCODEC::CompressQuery failed!\n");
        TraceRecords(src, dst);
    }
    return hr;
}

template <class BeginOp>
KXRESULT CCodecManager::BeginSession(ICodec* codec, uintptr_t preset, uintptr_t* phSession,
                                     const KXBMINFOHEADER* src, const KXBMINFOHEADER* dst,
                                     const wchar_t* failure, BeginOp begin) {
    // A codec that needs no handle of its own leaves the preset value.
    uintptr_t handle = preset;
    const KXRESULT hr = codec::GuardedStatus([&] { return begin(codec, &handle); });
    if (hr < 0) {
        dbgPrintf(8, 2, failure);
        TraceRecords(src, dst);
    }
    // A failed begin leaves a session too, which the caller ends like any other.
    CodecSession* s = new (std::nothrow) CodecSession(codec, handle);
    *phSession = reinterpret_cast<uintptr_t>(s);
    return hr;
}

KXRESULT CCodecManager::DecompressBegin(const KXBMINFOHEADER* src, KXBMINFOHEADER* dst,
                                        uintptr_t* phSession) {
    if (!phSession || !ValidBIH(dst)) return KXE_INVALID;
    ICodec* c = LocateCodec(src);
    if (!c) return KXE_INVALID;
    return BeginSession(c, reinterpret_cast<uintptr_t>(dst), phSession, src, dst,
                        L"KXCODEC::DecompressBegin failed!\n", [&](ICodec* codec, uintptr_t* h) {
                            return codec->DecompressBegin(src, dst, h);
                        });
}

KXRESULT CCodecManager::CompressBegin(const KXBMINFOHEADER* src, KXBMINFOHEADER* dst,
                                      uintptr_t* phSession) {
    if (!phSession || !ValidBIH(src) || !ValidBIH(dst)) return KXE_INVALID;
    ICodec* c = LocateCodec(dst);
    if (!c) return KXE_INVALID;
    return BeginSession(c, reinterpret_cast<uintptr_t>(src), phSession, src, dst,
                        L"KXCODEC::CompressBegin failed!\n", [&](ICodec* codec, uintptr_t* h) {
                            return codec->CompressBegin(src, dst, h);
                        });
}

KXRESULT CCodecManager::Decompress(const KXBMINFOHEADER* src, const void* srcBits,
                                   KXBMINFOHEADER* dst, uintptr_t arg1, uintptr_t arg2,
                                   uintptr_t arg3, uintptr_t hSession) {
    if (!ValidBIH(src) || !ValidBIH(dst) || !ValidBuffer(src, srcBits)) return KXE_INVALID;
    CodecSession* s = SessionFromHandle(hSession);
    if (!s || !s->pCodec) return KXE_INVALID;
    const KXRESULT hr = codec::GuardedStatus(
        [&] { return s->pCodec->Decompress(src, srcBits, dst, arg1, arg2, arg3, s->hSession); });
    if (hr < 0) {
        dbgPrintf(8, 2, L"KXCODEC::Decompress failed!\n");
        TraceRecords(src, dst);
    }
    return hr;
}

KXRESULT CCodecManager::Compress(const KXBMINFOHEADER* src, const void* srcBits,
                                 KXBMINFOHEADER* dst, uintptr_t arg1, uintptr_t arg2,
                                 uintptr_t arg3, uintptr_t hSession) {
    if (!ValidBIH(src) || !ValidBIH(dst) || !ValidBuffer(src, srcBits)) return KXE_INVALID;
    CodecSession* s = SessionFromHandle(hSession);
    if (!s || !s->pCodec) return KXE_INVALID;
    const KXRESULT hr = codec::GuardedStatus(
        [&] { return s->pCodec->Compress(src, srcBits, dst, arg1, arg2, arg3, s->hSession); });
    if (hr < 0) {
        dbgPrintf(8, 2, L"KXCODEC::Compress failed!\n");
        TraceRecords(src, dst);
    }
    return hr;
}

KXRESULT CCodecManager::DecompressEnd(uintptr_t hSession) {
    CodecSession* s = SessionFromHandle(hSession);
    if (!s || !s->pCodec) return KXE_INVALID; // and the record is not freed
    const KXRESULT hr = codec::GuardedStatus([&] { return s->pCodec->DecompressEnd(s->hSession); });
    if (hr < 0) dbgPrintf(8, 2, L"KXCODEC::DecompressEnd failed!\n");
    delete s;
    return hr;
}

KXRESULT CCodecManager::CompressEnd(uintptr_t hSession) {
    CodecSession* s = SessionFromHandle(hSession);
    if (!s || !s->pCodec) return KXE_INVALID;
    const KXRESULT hr = codec::GuardedStatus([&] { return s->pCodec->CompressEnd(s->hSession); });
    if (hr < 0) dbgPrintf(8, 2, L"KXCODEC::CompressEnd failed!\n");
    delete s;
    return hr;
}

// ---------------------------------------------------------------- the factory

ICodecManager* KXCODECCreateCodecManager() {
    return codec::Guarded<ICodecManager*>(
        nullptr, [] { return static_cast<ICodecManager*>(new (nothrow) CCodecManager()); });
}

} // namespace kelp
