// The toolkit's lookup tables, filled on first demand.
#include <kelp/stdfx_tables.h>

#include <cmath>
#include <cstring>

#include "singleton.h"

namespace stdfx {

namespace {

Singleton<CTables> g_tables;

template <class T> T* NewTable(size_t count) {
    return static_cast<T*>(kelp::NewAlloc(count * sizeof(T), kelp::nothrow));
}

// Publishes a filled table unless another thread got there first, in which case the
// new block goes back.
template <class T> bool Publish(std::atomic<T*>& slot, T* table) {
    if (!table) return false;
    T* expected = nullptr;
    if (!slot.compare_exchange_strong(expected, table, std::memory_order_acq_rel))
        kelp::NewFree(table);
    return true;
}

template <class T> T* Ready(std::atomic<T*>& slot) {
    return slot.load(std::memory_order_acquire);
}

// 256 entries of `low`, then i clamped to low..high, then 256 entries of `high`.
bool FillClampTable(std::atomic<int32_t*>& slot, int32_t low, int32_t high) {
    int32_t* t = NewTable<int32_t>(768);
    if (!t) return false;
    for (int i = 0; i < 768; ++i) {
        const int32_t v = i - 256;
        t[i] = v < low ? low : v > high ? high : v;
    }
    return Publish(slot, t);
}

// ((i >> 1) + numerator) / i with rounding bias, and 0 at 0.
bool FillDivTable(std::atomic<int32_t*>& slot, int32_t numerator, bool round) {
    int32_t* t = NewTable<int32_t>(256);
    if (!t) return false;
    t[0] = 0;
    for (int32_t i = 1; i < 256; ++i)
        t[i] = ((round ? i >> 1 : 0) + numerator) / i;
    return Publish(slot, t);
}

} // namespace

CTables* GetTables() {
    return g_tables.Get();
}

void DestroyTables() {
    g_tables.Destroy();
}

CTables::CTables() {
    for (auto& k : m_Kernels)
        k.store(nullptr, std::memory_order_relaxed);
}

CTables::~CTables() {
    kelp::NewFree(m_pClamp.load());
    kelp::NewFree(m_pClampY.load());
    kelp::NewFree(m_pClampC.load());
    kelp::NewFree(m_pExpandY.load());
    kelp::NewFree(m_pRecip.load());
    kelp::NewFree(m_pDiv24.load());
    kelp::NewFree(m_pDiv17.load());
    kelp::NewFree(m_pDiv16.load());
    for (auto& k : m_Kernels)
        kelp::NewFree(k.load());
}

bool CTables::FillAll() {
    bool ok = FillClamp();
    ok = FillClampY() && ok;
    ok = FillClampC() && ok;
    ok = FillDiv24() && ok;
    ok = FillDiv17() && ok;
    ok = FillDiv16() && ok;
    return ok;
}

const int32_t* CTables::GetClamp() {
    if (!Ready(m_pClamp)) FillClamp();
    return Ready(m_pClamp);
}
const int32_t* CTables::GetClampY() {
    if (!Ready(m_pClampY)) FillClampY();
    return Ready(m_pClampY);
}
const int32_t* CTables::GetClampC() {
    if (!Ready(m_pClampC)) FillClampC();
    return Ready(m_pClampC);
}
const int32_t* CTables::GetExpandY() {
    if (!Ready(m_pExpandY)) FillExpandY();
    return Ready(m_pExpandY);
}
const float* CTables::GetRecip() {
    if (!Ready(m_pRecip)) FillRecip();
    return Ready(m_pRecip);
}
const int32_t* CTables::GetDiv24() {
    if (!Ready(m_pDiv24)) FillDiv24();
    return Ready(m_pDiv24);
}
const int32_t* CTables::GetDiv17() {
    if (!Ready(m_pDiv17)) FillDiv17();
    return Ready(m_pDiv17);
}
const int32_t* CTables::GetDiv16() {
    if (!Ready(m_pDiv16)) FillDiv16();
    return Ready(m_pDiv16);
}

KernelEntry* const* CTables::GetKernel(int filter, int precision) {
    if (filter < 0 || filter >= stdfx2d::CFilter::kKinds) return nullptr;
    auto& slot = m_Kernels[(precision != 0 ? 1 : 0) + filter * 2];
    if (!Ready(slot)) FillKernel(filter, precision);
    return Ready(slot);
}

bool CTables::FillClamp() {
    return FillClampTable(m_pClamp, 0, 255);
}
bool CTables::FillClampY() {
    return FillClampTable(m_pClampY, 16, 235);
}
bool CTables::FillClampC() {
    return FillClampTable(m_pClampC, 16, 240);
}

bool CTables::FillExpandY() {
    int32_t* t = NewTable<int32_t>(256);
    if (!t) return false;
    for (int32_t i = 0; i < 256; ++i) {
        int32_t c = i - 16;
        c = c < 0 ? 0 : c > 219 ? 219 : c;
        t[i] = (c * 255 + 109) / 219;
    }
    return Publish(m_pExpandY, t);
}

bool CTables::FillRecip() {
    float* t = NewTable<float>(512);
    if (!t) return false;
    t[0] = 0.0f;
    for (int i = 1; i < 512; ++i)
        t[i] = 1.0f / float(i);
    return Publish(m_pRecip, t);
}

bool CTables::FillDiv24() {
    return FillDivTable(m_pDiv24, 0xFF0000, true);
}
bool CTables::FillDiv17() {
    return FillDivTable(m_pDiv17, 0x1FE00, false);
}
bool CTables::FillDiv16() {
    return FillDivTable(m_pDiv16, 0xFF00, true);
}

bool CTables::FillKernel(int filter, int precision) {
    if (filter < 0 || filter >= stdfx2d::CFilter::kKinds) return false;
    stdfx2d::CFilter f;
    f.Select(filter);
    const double r = f.Radius();
    const int32_t total = precision == 0 ? kTotal : kTotalPrecise;
    // Room for more taps than the support can hold: 2r + 1 at most fall inside it.
    const int n = int(2 * r + 5);
    const size_t entryBytes = 8 * size_t(n) + 16;
    static_assert(sizeof(KernelEntry) == 16 && sizeof(KernelTap) == 8, "entry layout");

    const size_t pointers = kPhases * sizeof(KernelEntry*);
    auto* block =
        static_cast<unsigned char*>(kelp::NewAlloc(pointers + kPhases * entryBytes, kelp::nothrow));
    if (!block) return false;
    std::memset(block, 0, pointers + kPhases * entryBytes);
    auto** row = reinterpret_cast<KernelEntry**>(block);

    for (int p = 0; p < kPhases; ++p) {
        auto* e = reinterpret_cast<KernelEntry*>(block + pointers + p * entryBytes);
        e->taps = reinterpret_cast<KernelTap*>(e + 1);
        row[p] = e;
        const double x = p / 256.0;
        int32_t sum = 0;
        if (f.GetFunction()) {
            const int first = int(std::ceil(x - r)), last = int(std::floor(x + r));
            for (int i = first; i <= last && e->count < n; ++i) {
                const double v = f(x - i) * total;
                const int32_t w = int32_t(v >= 0 ? v + 0.5 : v - 0.5);
                if (w == 0) continue;
                e->taps[e->count++] = {i, w};
                sum += w;
            }
        }
        if (sum != total) {
            if (e->count > 0)
                e->taps[e->count / 2].weight += total - sum;
            else
                e->taps[e->count++] = {int32_t(x + 0.5), total};
        }
    }
    return Publish(m_Kernels[(precision != 0 ? 1 : 0) + filter * 2], row);
}

} // namespace stdfx
