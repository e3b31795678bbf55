// A conversion stage for the tests, whose every move is set by the test: it adds its
// number to every byte, in place or into a new buffer, and can refuse, fail or throw.
#pragma once

#include <cstring>
#include <stdexcept>
#include <vector>

#include "convert/converter.h"

namespace kelptest {

class FakeStage : public kelp::CConverter {
  public:
    struct Behaviour {
        bool refuseFormat = false;     // GetOutputFormat refuses
        bool inPlace = false;          // works in place when KXCONV_KEEP_INPUT is clear
        bool shareAnyway = false;      // works in place whatever the flags say
        bool fail = false;             // Convert fails
        bool allocateThenFail = false; // Convert allocates its output, then fails
        bool throwInConvert = false;
        bool acceptInput = true;
        bool throwInQuery = false;
        KXRECT rect{0, 0, 0, 0}; // written into the output record
    };

    FakeStage(unsigned char id, Behaviour b, const wchar_t* name = L"FakeStage")
        : CConverter(name), m_id(id), m_b(b) {}

    KXRESULT GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out,
                             kelp::IAllocator* allocator, const KXBMINFOHEADER*) override {
        if (m_b.refuseFormat) return KXE_INVALID;
        auto* f = static_cast<KXBMINFOHEADER*>(allocator->Allocate(in->biSize, 0));
        if (!f) return KXE_OUTOFMEMORY;
        std::memcpy(f, in, in->biSize);
        *out = f;
        return KX_OK;
    }
    KXRESULT QueryInput(KXBMINFOHEADER*) override {
        if (m_b.throwInQuery) throw std::runtime_error("query");
        return m_b.acceptInput ? KX_OK : KXE_INVALID;
    }
    KXRESULT QueryOutput(KXBMINFOHEADER*) override {
        if (m_b.throwInQuery) throw 42;
        return m_b.acceptInput ? KX_OK : KXE_INVALID;
    }
    KXRESULT Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t*, int32_t* q) override {
        KXRESULT r = QueryFormats(in, out);
        if (KX_FAILED(r)) return r;
        *q += 1;
        return KX_OK;
    }
    KXRESULT Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out, void** outData,
                     uint32_t* flags, int32_t* q, kelp::IAllocator* allocator) override {
        seenFlags.push_back(*flags);
        seenInput.push_back(inData);
        seenAllocator.push_back(allocator);
        if (m_b.throwInConvert) throw std::runtime_error("stage");
        if (m_b.fail) return KXE_INVALID;
        *q += 1;
        const uint32_t n = in->biSizeImage;
        unsigned char* dst;
        if (m_b.shareAnyway || (m_b.inPlace && !(*flags & KXCONV_KEEP_INPUT))) {
            dst = static_cast<unsigned char*>(inData);
            *flags |= KXCONV_OUT_SHARED;
        } else {
            dst = static_cast<unsigned char*>(allocator->Allocate(n, 0));
            if (!dst) return KXE_OUTOFMEMORY;
            std::memcpy(dst, inData, n);
        }
        *outData = dst;
        for (uint32_t i = 0; i < n; ++i)
            dst[i] = static_cast<unsigned char>(dst[i] + m_id);
        out->biSizeImage = n;
        out->bmiRect = m_b.rect;
        return m_b.allocateThenFail ? KXE_INVALID : KX_OK;
    }

    std::vector<uint32_t> seenFlags;
    std::vector<void*> seenInput;
    std::vector<kelp::IAllocator*> seenAllocator;

  private:
    unsigned char m_id;
    Behaviour m_b;
};

} // namespace kelptest
