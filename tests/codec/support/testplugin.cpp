// A codec plug-in for the registry's tests, built once per behaviour (TP_SET):
//   TP_EQUAL       three codecs: 'EQ1 ' and 'EQ2 ' of priority 10, 'LOW ' of 5 between them
//   TP_BADVERSION  one codec of version 0x10001, which the manager refuses
//   TP_NOENTRY     no entry at all
//   TP_THROWS      adds 'THRO' of priority 20, then throws
//   TP_NOTHING     an entry that adds nothing
// Each codec takes the formats 'TEST' and, for the two equal ones, 'TIE '. Releases and
// the unloading of the module are told to the test program through the function
// kelptest_CodecEvent, which it exports.
#include <kelp/kxcodec.h>

#include <dlfcn.h>

#include <cstring>
#include <stdexcept>
#include <string>

namespace {

void Event(const std::string& what) {
    using Sink = void (*)(const char*);
    if (auto sink = reinterpret_cast<Sink>(dlsym(RTLD_DEFAULT, "kelptest_CodecEvent")))
        sink(what.c_str());
}

std::string Name(uint32_t fcc) {
    return std::string(reinterpret_cast<const char*>(&fcc), 4);
}

class TestCodec final : public kelp::ICodec {
  public:
    TestCodec(uint32_t fcc, uint32_t priority, bool tie, uint32_t version = kelp::KXCODEC_VERSION)
        : m_fcc(fcc), m_priority(priority), m_tie(tie), m_version(version) {}
    void Release() override {
        Event("release " + Name(m_fcc));
        delete this;
    }
    uint32_t GetVersion() override { return m_version; }
    uint32_t GetPriority() override { return m_priority; }
    KXRESULT Open() override { return KX_OK; }
    KXRESULT Close() override { return KX_OK; }
    KXRESULT Configure(uintptr_t code, uintptr_t value, uintptr_t size) override {
        if (code != kelp::KXCODEC_CFG_DESCRIBE || size < sizeof(kelp::KXCODECDESC))
            return KXE_NOTIMPL;
        auto* d = reinterpret_cast<kelp::KXCODECDESC*>(value);
        d->fccCodec = m_fcc;
        d->dwCaps = kelp::KXCODEC_CAN_DECOMPRESS;
        std::strcpy(d->szName, "test");
        return KX_OK;
    }
    KXRESULT Notify(uintptr_t, uintptr_t, uintptr_t) override { return KX_OK; }
    KXRESULT DecompressGetFormat(const KXBMINFOHEADER*, uintptr_t, uintptr_t, uintptr_t) override {
        return KXE_NOTIMPL;
    }
    KXRESULT DecompressQuery(const KXBMINFOHEADER* src, const KXBMINFOHEADER*) override {
        if (src->biCompression == KXFOURCC('T', 'E', 'S', 'T')) return KX_OK;
        if (m_tie && src->biCompression == KXFOURCC('T', 'I', 'E', ' ')) return KX_OK;
        return KXE_INVALID;
    }
    KXRESULT DecompressBegin(const KXBMINFOHEADER*, KXBMINFOHEADER*, uintptr_t*) override {
        return KX_OK;
    }
    KXRESULT Decompress(const KXBMINFOHEADER*, const void*, KXBMINFOHEADER*, uintptr_t, uintptr_t,
                        uintptr_t, uintptr_t) override {
        return KX_OK;
    }
    KXRESULT DecompressEnd(uintptr_t) override { return KX_OK; }
    KXRESULT CompressGetFormat(uintptr_t, uintptr_t, uintptr_t) override { return KXE_NOTIMPL; }
    KXRESULT CompressQuery(const KXBMINFOHEADER*, const KXBMINFOHEADER*) override {
        return KXE_INVALID;
    }
    KXRESULT CompressBegin(const KXBMINFOHEADER*, KXBMINFOHEADER*, uintptr_t*) override {
        return KXE_INVALID;
    }
    KXRESULT Compress(const KXBMINFOHEADER*, const void*, KXBMINFOHEADER*, uintptr_t, uintptr_t,
                      uintptr_t, uintptr_t) override {
        return KXE_INVALID;
    }
    KXRESULT CompressEnd(uintptr_t) override { return KXE_INVALID; }

  private:
    uint32_t m_fcc, m_priority;
    bool m_tie;
    uint32_t m_version;
};

__attribute__((destructor)) void Unloaded() {
    Event(std::string("unload ") + TP_NAME);
}

} // namespace

#ifndef TP_NOENTRY
KXCODEC_PLUGIN_ENTRY KXRESULT EnumerateCodecs(kelp::ICodecManager* m, uint32_t version) {
    if (version != kelp::KXCODEC_VERSION) return KXE_INVALID;
#if defined(TP_EQUAL)
    m->AddCodec(KXFOURCC('E', 'Q', '1', ' '),
                new TestCodec(KXFOURCC('E', 'Q', '1', ' '), 10, true));
    m->AddCodec(KXFOURCC('L', 'O', 'W', ' '),
                new TestCodec(KXFOURCC('L', 'O', 'W', ' '), 5, false));
    m->AddCodec(KXFOURCC('E', 'Q', '2', ' '),
                new TestCodec(KXFOURCC('E', 'Q', '2', ' '), 10, true));
#elif defined(TP_BADVERSION)
    auto* c = new TestCodec(KXFOURCC('B', 'A', 'D', 'V'), 50, false, 0x10001);
    if (m->AddCodec(KXFOURCC('B', 'A', 'D', 'V'), c) < 0) delete c;
#elif defined(TP_THROWS)
    m->AddCodec(KXFOURCC('T', 'H', 'R', 'O'),
                new TestCodec(KXFOURCC('T', 'H', 'R', 'O'), 20, false));
    throw std::runtime_error("entry gives up");
#elif defined(TP_NOTHING)
    (void)m;
#endif
    return KX_OK;
}
#endif
