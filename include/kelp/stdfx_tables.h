// The toolkit's lookup tables (clamps, reciprocals, resampling kernels), each built on
// first demand and then shared read-only by the whole process, and the RGB/HSL
// conversions that use them.
#pragma once

#include <atomic>

#include "kelpdefs.h"
#include "mpheap.h"
#include "stdfx_filter.h"

namespace stdfx {

// One tap of a kernel: a pixel offset from the sample position's floor, and a weight.
struct KernelTap {
    int32_t offset;
    int32_t weight;
};

// The taps of one phase. The taps follow the entry in the same block.
struct KernelEntry {
    int32_t count;
    KernelTap* taps;
};

class KELP_API CTables : public kelp::CKELPHeapObject {
public:
    static constexpr int kPhases = 256;
    static constexpr int32_t kTotal = 65536;        // precision 0: weights sum to this
    static constexpr int32_t kTotalPrecise = 16384; // any other precision

    CTables();
    virtual ~CTables();

    // FillClamp, FillClampY, FillClampC and the three division tables; true if all
    // of them stand.
    virtual bool FillAll();

    // Each getter fills its table on first demand; null if that fails. The three clamps
    // have 768 entries and are read from their element 256, for indices -256 to 511.
    virtual const int32_t* GetClamp();   // 0..255
    virtual const int32_t* GetClampY();  // 16..235
    virtual const int32_t* GetClampC();  // 16..240
    virtual const int32_t* GetExpandY(); // 256 entries: 16..235 stretched to 0..255
    virtual const float* GetRecip();     // 512 entries: 1/i, and 0 at 0
    virtual const int32_t* GetDiv24();   // 256 entries: 0xFF0000 / i, rounded
    virtual const int32_t* GetDiv17();   // 256 entries: 0x1FE00 / i
    virtual const int32_t* GetDiv16();   // 256 entries: 0xFF00 / i, rounded
    // The 256 phases (1/256 of a pixel each) of a CFilter kind from 0 to 18, with weights
    // that sum exactly to kTotal at precision 0 and to kTotalPrecise otherwise. Null for
    // another kind or a failed allocation.
    virtual KernelEntry* const* GetKernel(int filter, int precision);

    virtual bool FillClamp();
    virtual bool FillClampY();
    virtual bool FillClampC();
    virtual bool FillExpandY();
    virtual bool FillRecip();
    virtual bool FillDiv24();
    virtual bool FillDiv17();
    virtual bool FillDiv16();
    virtual bool FillKernel(int filter, int precision);

protected:
    // A table is published once; a second thread that filled the same table at the same
    // moment frees its own block.
    std::atomic<int32_t*> m_pClamp{nullptr};
    std::atomic<int32_t*> m_pClampY{nullptr};
    std::atomic<int32_t*> m_pClampC{nullptr};
    std::atomic<int32_t*> m_pExpandY{nullptr};
    std::atomic<float*> m_pRecip{nullptr};
    std::atomic<int32_t*> m_pDiv24{nullptr};
    std::atomic<int32_t*> m_pDiv17{nullptr};
    std::atomic<int32_t*> m_pDiv16{nullptr};
    // Row precision + filter * 2: 256 entry pointers, all in one block.
    std::atomic<KernelEntry**> m_Kernels[stdfx2d::CFilter::kKinds * 2];
};

// The one instance, made on first use (null if it could not be made).
KELP_API CTables* GetTables();

// RGB to hue, lightness and saturation and back, all three in 0..1.
class KELP_API CHSL : public kelp::CKELPHeapObject {
public:
    CHSL();
    virtual ~CHSL() = default;

    // r, g, b in 0..255. Grey gives H and S of 0.
    virtual void RGBToHSL(float* h, float* l, float* s, int r, int g, int b);
    // r, g, b in 0..65535.
    virtual void RGBToHSL16(float* h, float* l, float* s, int r, int g, int b);
    // An S of 0 or an H of -1 is grey. Outputs value * 255 + 0.5, truncated.
    virtual void HSLToRGB(int* r, int* g, int* b, float h, float l, float s);
    // Three bytes B, G, R: value * 255 + 0.5 rounded to the nearest (a lightness of 1
    // reaches 256 there, which the byte keeps at 255).
    virtual void HSLToBytes(unsigned char* bgr, float h, float l, float s);
    // value * 65535 + 0.5 rounded to the nearest, kept to 0..65535.
    virtual void HSLToRGB16(int* r, int* g, int* b, float h, float l, float s);

protected:
    // The three colour values of a hue, lightness and saturation, before scaling.
    void Components(float out[3], float h, float l, float s) const;

    const float* m_pRecip;
    int m_sextant[7][3];
};

} // namespace stdfx
