// An in-process codec for the manager's tests: it takes the formats it is told, answers
// the statuses it is given, and writes every call it receives to a shared log.
#pragma once

#include <kelp/kxcodec.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace codectest {

struct CallLog {
    std::vector<std::string> calls;
};

class FakeCodec : public kelp::ICodec {
  public:
    FakeCodec(std::string name, uint32_t priority, uint32_t fourcc, CallLog* log)
        : name(std::move(name)), priority(priority), fourcc(fourcc), log(log) {}

    // What the codec answers.
    std::string name;
    uint32_t priority;
    uint32_t fourcc; // the one format it decompresses, and compresses to
    CallLog* log;
    uint32_t version = kelp::KXCODEC_VERSION;
    KXRESULT openStatus = KX_OK;
    KXRESULT beginStatus = KX_OK;
    KXRESULT opStatus = KX_OK;
    KXRESULT endStatus = KX_OK;
    KXRESULT notifyStatus = KX_OK;
    bool setsHandle = true; // writes `handle` at Begin, else leaves the preset
    uintptr_t handle = 0;
    std::string throwIn; // the name of an operation that throws

    // What the codec saw last.
    uintptr_t presetSeen = 0, handleSeen = 0;
    uintptr_t args[3] = {0, 0, 0};

    void Release() override {}
    uint32_t GetVersion() override { return version; }
    uint32_t GetPriority() override { return priority; }
    KXRESULT Open() override { return Call("open", openStatus); }
    KXRESULT Close() override { return Call("close", KX_OK); }
    KXRESULT Configure(uintptr_t, uintptr_t, uintptr_t) override { return KXE_NOTIMPL; }
    KXRESULT Notify(uintptr_t a1, uintptr_t a2, uintptr_t h) override {
        Keep(a1, a2, 0, h);
        return Call("notify", notifyStatus);
    }
    KXRESULT DecompressGetFormat(const KXBMINFOHEADER*, uintptr_t a1, uintptr_t a2,
                                 uintptr_t a3) override {
        Keep(a1, a2, a3, 0);
        return Call("dgetformat", opStatus);
    }
    KXRESULT DecompressQuery(const KXBMINFOHEADER* src, const KXBMINFOHEADER* dst) override {
        if (throwIn == "dquery") throw std::runtime_error("dquery");
        if (src->biCompression != fourcc) return KXE_INVALID;
        return dst ? Call("dquery", opStatus) : KX_OK;
    }
    KXRESULT DecompressBegin(const KXBMINFOHEADER*, KXBMINFOHEADER*, uintptr_t* h) override {
        return Begin("dbegin", h);
    }
    KXRESULT Decompress(const KXBMINFOHEADER*, const void*, KXBMINFOHEADER*, uintptr_t a1,
                        uintptr_t a2, uintptr_t a3, uintptr_t h) override {
        Keep(a1, a2, a3, h);
        return Call("decompress", opStatus);
    }
    KXRESULT DecompressEnd(uintptr_t h) override {
        handleSeen = h;
        return Call("dend", endStatus);
    }
    KXRESULT CompressGetFormat(uintptr_t, uintptr_t, uintptr_t) override { return KXE_NOTIMPL; }
    KXRESULT CompressQuery(const KXBMINFOHEADER*, const KXBMINFOHEADER* dst) override {
        if (dst->biCompression != fourcc) return KXE_INVALID;
        return Call("cquery", opStatus);
    }
    KXRESULT CompressBegin(const KXBMINFOHEADER*, KXBMINFOHEADER*, uintptr_t* h) override {
        return Begin("cbegin", h);
    }
    KXRESULT Compress(const KXBMINFOHEADER*, const void*, KXBMINFOHEADER*, uintptr_t a1,
                      uintptr_t a2, uintptr_t a3, uintptr_t h) override {
        Keep(a1, a2, a3, h);
        return Call("compress", opStatus);
    }
    KXRESULT CompressEnd(uintptr_t h) override {
        handleSeen = h;
        return Call("cend", endStatus);
    }

  private:
    KXRESULT Call(const char* op, KXRESULT status) {
        if (throwIn == op) throw std::runtime_error(op);
        log->calls.push_back(std::string(op) + " " + name);
        return status;
    }
    void Keep(uintptr_t a1, uintptr_t a2, uintptr_t a3, uintptr_t h) {
        args[0] = a1;
        args[1] = a2;
        args[2] = a3;
        handleSeen = h;
    }
    KXRESULT Begin(const char* op, uintptr_t* h) {
        presetSeen = *h;
        if (setsHandle) *h = handle;
        return Call(op, beginStatus);
    }
};

} // namespace codectest
