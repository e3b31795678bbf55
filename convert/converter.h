// The base of every conversion stage: its name and the descriptor comparisons.
#pragma once

#include <kelp/kxconv.h>
#include <kelp/mpheap.h>

namespace kelp {

// Stages live on the library's multi-heap.
class CConverter : public IConverter, public CKELPHeapObject {
  public:
    // The name is cut to 15 characters.
    explicit CConverter(const wchar_t* name);

    void Release() override { delete this; }
    uint32_t GetVersion() override { return KXCONV_VERSION; }
    const wchar_t* GetName() const { return m_szName; }

    // The comparisons of two records, stateless.
    static bool SameColorSpace(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t f) {
        return kelp::SameColorSpace(a, b, f);
    }
    static bool SameBitCount(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t f) {
        return kelp::SameBitCount(a, b, f);
    }
    static bool SameGeometry(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t f) {
        return kelp::SameGeometry(a, b, f);
    }
    static bool SameScan(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t f) {
        return kelp::SameScan(a, b, f);
    }
    static bool SameFlags(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t f) {
        return kelp::SameFlags(a, b, f);
    }
    static bool SameAlpha(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t f) {
        return kelp::SameAlpha(a, b, f);
    }
    static bool SameRect(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t f) {
        return kelp::SameRect(a, b, f);
    }

  protected:
    // The first thing every Query does: QueryInput(in), then QueryOutput(out), tracing
    // the side that failed with this stage's name. Gives the failing code, or KX_OK.
    KXRESULT QueryFormats(KXBMINFOHEADER* in, KXBMINFOHEADER* out);

    wchar_t m_szName[16];
};

} // namespace kelp
