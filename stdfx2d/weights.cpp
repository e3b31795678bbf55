// The tables of one raster pass: the integer lookups of nearest mode and the weight
// lists of the filter modes, all in one block. Floating point is used here once a
// row or a column; the raster paths see integers only.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "runtime/kelpos.h"
#include "stdfx2d/fx2d.h"
#include "stdfx2d/fx2dformat.h"

namespace stdfx2d {

namespace {

// Blocks beyond this are refused as out of memory rather than asked for.
constexpr size_t kMaxBlock = size_t(1) << 31;

bool NearOne(double v) {
    const float f = float(v);
    return f > 1.0f - 0x1p-23f && f < 1.0f + 0x1p-23f;
}
bool NearZero(double v) {
    const float f = float(v);
    return f > -0x1p-23f && f < 0x1p-23f;
}
double Clamp100(double v) {
    return v < 0.0 ? 0.0 : (v > 100.0 ? 100.0 : v);
}
int32_t ClampInt(int32_t v, int32_t lo, int32_t hi) {
    return v < lo ? lo : (v > hi ? hi : v);
}
int32_t TruncClamp(double v, int32_t lo, int32_t hi) {
    if (!(v > lo)) return lo;
    if (!(v < hi)) return hi;
    return ClampInt(int32_t(v), lo, hi);
}

// Mirrors an index beyond the image back into it; past the opposite border it clamps.
int32_t Mirror(int32_t i, int32_t length) {
    if (i < 0)
        i = std::min(-1 - i, length - 1);
    else if (i >= length) {
        i = 2 * length - i - 1;
        if (i <= 0) i = 0;
    }
    return ClampInt(i, 0, length - 1);
}

// The parameters of one axis's weight lists.
struct Axis {
    double pos;
    double advance;
    double norm;
    double argscale;
    double support;
    int32_t length;
    int32_t capacity;
};

// Taps of a list at a capacity: at most floor(2 * support) + 1 kernel samples, and one
// more when an interlaced source splits a tap.
int32_t Capacity(double support) {
    const double c = 1.0 + 2.0 * (std::ceil(support) + 1.0) + 1.0;
    return c > 1e8 ? 100000000 : int32_t(c);
}

// The table block of a pass is kept by its thread from call to call: a transform is
// called once a frame with the same sizes, and a block asked of the heap afresh each time
// came back as fresh pages, faulted in again on every call. Only a block beyond kKeepBlock
// goes back at the end of its pass. The block is not cleared: the builders write every
// field that a raster pass reads.
constexpr size_t kKeepBlock = size_t(64) << 20;

struct TableBlockCache {
    uint8_t* block = nullptr;
    size_t size = 0;
    bool busy = false;
    ~TableBlockCache() { std::free(block); }
};
thread_local TableBlockCache t_tableBlock;

uint8_t* TakeTableBlock(size_t bytes) {
    TableBlockCache& c = t_tableBlock;
    if (c.busy) return static_cast<uint8_t*>(std::malloc(bytes)); // a pass within a pass
    if (c.size < bytes) {
        std::free(c.block);
        c.size = 0;
        c.block = static_cast<uint8_t*>(std::malloc(bytes));
        if (!c.block) return nullptr;
        c.size = bytes;
    }
    c.busy = true;
    return c.block;
}

void GiveTableBlock(uint8_t* p) {
    TableBlockCache& c = t_tableBlock;
    if (!p) return;
    if (p != c.block) {
        std::free(p);
        return;
    }
    c.busy = false;
    if (c.size > kKeepBlock) {
        std::free(c.block);
        c.block = nullptr;
        c.size = 0;
    }
}

} // namespace

void* CFx2d::AllocTables(size_t bytes) {
    if (bytes == 0 || bytes > kMaxBlock) return nullptr;
    m_tables = TakeTableBlock(bytes);
    return m_tables;
}

void CFx2d::FreeLookups() {
    GiveTableBlock(m_tables);
    m_tables = nullptr;
    m_columnLookup = nullptr;
    m_rowLookup = nullptr;
}

void CFx2d::FreeTaps() {
    GiveTableBlock(m_tables);
    m_tables = nullptr;
    m_workRow = nullptr;
    m_columnTaps = nullptr;
    m_rowTaps = nullptr;
}

int CFx2d::BuildLookups() {
    FreeLookups();
    const int32_t W = m_span.Width(), H = m_span.Height();
    if (W <= 0 || H <= 0) return FX2D_OUTOFMEMORY;
    if (!AllocTables((size_t(H) + size_t(W)) * 4 + 32)) return FX2D_OUTOFMEMORY;
    m_columnLookup = reinterpret_cast<int32_t*>(m_tables);
    m_rowLookup = m_columnLookup + W + 4;
    const int32_t srcW = m_sourceRect.Width(), srcH = m_sourceRect.Height();

    // An error walk: each target pixel takes the source pixel whose share it falls in.
    auto walk = [](int32_t* out, int32_t count, int32_t sourceCount, int32_t base, int32_t limit) {
        int32_t e = sourceCount >> 1, s = 0, r = count, n = 0;
        while (n < count) {
            if (e < r) {
                out[n] = ClampInt(base + s, 0, limit - 1);
                r -= e;
                ++n;
                e = sourceCount;
            } else {
                e -= r;
                r = count;
                if (s < sourceCount - 1) ++s;
            }
            if (sourceCount <= 0) { // nothing to walk over: the clip's first pixel
                for (; n < count; ++n)
                    out[n] = ClampInt(base, 0, limit - 1);
            }
        }
    };
    walk(m_columnLookup, W, m_sourceClip.Width(), m_sourceClip.left, srcW);
    walk(m_rowLookup, H, m_sourceClip.Height(), m_sourceRect.bottom - m_sourceClip.bottom, srcH);

    // An interlaced source is kept to one field.
    if (fx2dformat::Interlaced(m_source)) {
        bool first;
        if (m_source->biHeight < 0)
            first = m_field == 0;
        else if (m_field == 0)
            first = (srcH & 1) != 0;
        else
            first = (srcH & 1) == 0;
        int32_t p = first ? 0 : 1;
        if (m_source->bmiFormat & KXBMIFORMAT_FIELDSWAP) p ^= 1;
        if ((m_source->bmiFormat ^ m_target->bmiFormat) & KXBMIFORMAT_ODDEVEN_CHRONO) p ^= 1;
        for (int32_t i = 0; i < H; ++i) {
            int32_t& e = m_rowLookup[i];
            if ((e & 1) != p) e = e == 0 ? std::min(1, srcH - 1) : e - 1;
        }
    }
    return FX2D_OK;
}

int CFx2d::BuildTaps() {
    FreeTaps();
    SetWeightScale();
    m_rowsIdentity = 1;
    const bool yuvTarget = fx2dformat::IsYuv(m_target);
    const int32_t black = fx2dformat::Black(m_source);
    const int32_t unit = 1 << m_weightBits;
    const int32_t full = unit << m_weightShift;
    const double blurX = Clamp100(m_softnessX) / 100.0 * 99.0 + 1.0;
    const double blurY = Clamp100(m_softnessY) / 100.0 * 99.0 + 1.0;
    const double radius = m_filter.Radius();
    const int32_t spanW = m_span.Width(), spanH = m_span.Height();
    if (spanW <= 0 || spanH <= 0) return FX2D_OUTOFMEMORY;

    // ---- the two axes' steps and starting positions
    Axis rows{}, cols{};
    {
        const double S = ScaleY();
        const int32_t L = m_sourceRect.Height(), B = m_sizeBounds.Height();
        const int32_t h = m_sizeRect.bottom.Raw() - m_sizeRect.top.Raw();
        double D = 1.0 / S, half = 0.0;
        if (h > 256) {
            D = (L - 1) / (h * 0.00390625 - 1.0);
            half = (B - 1) * 0.5 * D;
        }
        rows.advance = B > 1 ? (half + half) / (B - 1) : 0.0;
        rows.pos = (L - 1) * 0.5 + half - (B - m_span.bottom) * rows.advance;
        const int32_t r = m_centredRect.top.Raw() & 255;
        if (r != 0) rows.pos -= r * rows.advance * 0.00390625;
        if ((m_sizeRect.top.Raw() & 255) + r >= 256) rows.pos += rows.advance;
        rows.norm = unit / blurY;
        rows.argscale = 1.0 / blurY;
        rows.support = blurY * radius;
        if (S < 1.0) {
            rows.norm *= S;
            rows.argscale *= S;
            rows.support *= D;
        }
        rows.length = L;
        if (NearZero(m_param.offsetY) && NearOne(S) && NearOne(blurY) && r == 0 &&
            (m_sizeRect.top.Raw() & 255) == 0)
            rows.support = -1.0; // the one-tap shortcut
    }
    {
        const double S = ScaleX();
        const int32_t L = m_sourceRect.Width(), B = m_sizeBounds.Width();
        const int32_t w = m_sizeRect.right.Raw() - m_sizeRect.left.Raw();
        double D = 1.0 / S, half = 0.0;
        // One whole pixel wide, the exact step would divide by 0: the scale's step then.
        if (w >= 256 && w != 256) {
            D = (L - 1) / (w * 0.00390625 - 1.0);
            half = (B - 1) * 0.5 * D;
        }
        cols.advance = B > 1 ? (half + half) / (B - 1) : 0.0;
        cols.pos = m_span.left * cols.advance + (L - 1) * 0.5 - half;
        const int32_t r = m_centredRect.left.Raw() & 255;
        if (r != 0) cols.pos -= r * cols.advance * 0.00390625;
        if ((m_sizeRect.left.Raw() & 255) + r >= 256) cols.pos += cols.advance;
        cols.norm = unit / blurX;
        cols.argscale = 1.0 / blurX;
        cols.support = blurX * radius;
        if (S < 1.0) {
            cols.norm *= S;
            cols.argscale *= S;
            cols.support *= D;
        }
        cols.length = L;
    }
    if (!std::isfinite(rows.pos) || !std::isfinite(cols.pos) || !std::isfinite(rows.support) ||
        !std::isfinite(cols.support) || !std::isfinite(rows.advance) ||
        !std::isfinite(cols.advance))
        return FX2D_OUTOFMEMORY;
    rows.capacity = rows.support < 0 ? 2 : Capacity(rows.support);
    cols.capacity = Capacity(cols.support);

    // ---- the block: row lists, column lists, their taps, the work rows
    const size_t rowTaps = size_t(spanH) * size_t(rows.capacity);
    const size_t colTaps = size_t(spanW) * size_t(cols.capacity);
    const size_t work = (size_t(m_sourceRect.Width()) + size_t(m_targetRect.Width()) + 64) * 32;
    const size_t lists = (size_t(spanH) + size_t(spanW)) * sizeof(Fx2dTapList);
    const size_t bytes = 64 + work + lists + (rowTaps + colTaps) * sizeof(Fx2dTap) + 128;
    if (rowTaps > kMaxBlock || colTaps > kMaxBlock || !AllocTables(bytes)) return FX2D_OUTOFMEMORY;
    uint8_t* p = m_tables + ((64 - (reinterpret_cast<uintptr_t>(m_tables) & 63)) & 63);
    m_workRow = reinterpret_cast<int32_t*>(p);
    p += work;
    m_rowTaps = reinterpret_cast<Fx2dTapList*>(p);
    m_columnTaps = m_rowTaps + spanH;
    Fx2dTap* taps = reinterpret_cast<Fx2dTap*>(m_columnTaps + spanW);
    for (int32_t i = 0; i < spanH; ++i)
        m_rowTaps[i] = {0, taps + size_t(i) * rows.capacity, 0, 0};
    taps += rowTaps;
    for (int32_t i = 0; i < spanW; ++i)
        m_columnTaps[i] = {0, taps + size_t(i) * cols.capacity, 0, 0};

    // One list from the kernel around `pos`.
    auto fill = [&](Fx2dTapList& list, const Axis& a, double pos, bool isRow, int32_t cap) {
        const int32_t L = a.length;
        const double hiD = std::floor(pos + a.support), loD = std::ceil(pos - a.support);
        const int32_t hi = int32_t(std::max(-2e9, std::min(2e9, hiD)));
        const int32_t lo = int32_t(std::max(-2e9, std::min(2e9, loD)));
        int32_t sum = 0;
        list.count = 0;
        for (int64_t i = lo; i <= hi && list.count < cap - 1; ++i) {
            const double w = std::round(m_filter((pos - double(i)) * a.argscale) * a.norm);
            const int32_t wi = int32_t(w);
            if (wi == 0) continue;
            sum += wi;
            const int32_t m = Mirror(int32_t(i), L);
            list.taps[list.count++] = {isRow ? L - 1 - m : m, wi * (1 << m_weightShift)};
        }
        if (sum != unit) {
            if (list.count > 0)
                list.taps[list.count >> 1].weight += (unit - sum) * (1 << m_weightShift);
            else {
                const int32_t m = TruncClamp(pos, 0, L - 1);
                list.taps[list.count++] = {isRow ? L - 1 - m : m, full};
            }
        }
    };

    // ---- rows
    double pos = rows.pos;
    for (int32_t t = 0; t < spanH; ++t) {
        Fx2dTapList& list = m_rowTaps[t];
        if (rows.support < 0) {
            list.count = 1;
            list.taps[0] = {rows.length - 1 - TruncClamp(pos, 0, rows.length - 1), full};
        } else {
            m_rowsIdentity = 0;
            fill(list, rows, pos, true, rows.capacity);
        }
        pos -= rows.advance;
    }
    auto edge = [&](Fx2dTapList& list, int32_t keep, int32_t rest) {
        for (int32_t k = 0; k < list.count; ++k)
            list.taps[k].weight = kelp::os::MulDiv(list.taps[k].weight, keep, 256);
        if (yuvTarget) {
            const int32_t part = kelp::os::MulDiv(rest, full, 256);
            list.biasLuma = part * black;
            list.biasChroma = part * 128;
        }
    };
    // Partly covered first and last rows lose weight; in YUV what they lose goes to black.
    {
        const int32_t c = m_placedRect.bottom.Raw() & 255;
        if (m_imageBounds.Height() > 1 && m_span.bottom >= m_imageBounds.bottom && c != 0 &&
            m_rowTaps[0].count > 0) {
            m_rowsIdentity = 0;
            edge(m_rowTaps[0], c, 256 - c);
        }
        const int32_t f = m_placedRect.top.Raw() & 255;
        if (m_span.top == 0 && f != 0 && m_rowTaps[spanH - 1].count > 0) {
            m_rowsIdentity = 0;
            edge(m_rowTaps[spanH - 1], 256 - f, f);
        }
    }

    // ---- columns
    pos = cols.pos;
    for (int32_t i = 0; i < spanW; ++i) {
        fill(m_columnTaps[i], cols, pos, false, cols.capacity);
        pos += cols.advance;
    }
    {
        const int32_t f = m_placedRect.left.Raw() & 255;
        if (m_span.left == 0 && f != 0 && m_columnTaps[0].count > 0)
            edge(m_columnTaps[0], 256 - f, f);
        const int32_t c = m_placedRect.right.Raw() & 255;
        if (m_imageBounds.Width() > 1 && m_span.right >= m_imageBounds.right && c != 0 &&
            m_columnTaps[spanW - 1].count > 0)
            edge(m_columnTaps[spanW - 1], c, 256 - c);
    }

    // ---- an interlaced source: each row list reads one field only
    if (fx2dformat::Interlaced(m_source)) {
        const int32_t L = rows.length;
        int32_t p = DIBFirstFieldRow(m_source, m_field);
        if ((m_source->bmiFormat ^ m_target->bmiFormat) & KXBMIFORMAT_ODDEVEN_CHRONO) p ^= 1;
        std::vector<Fx2dTap> out;
        for (int32_t t = 0; t < spanH; ++t) {
            Fx2dTapList& list = m_rowTaps[t];
            out.clear();
            int32_t last = -1;
            auto put = [&](int32_t index, int32_t weight) {
                index = ClampInt(index, 0, L - 1);
                if (index == last && !out.empty())
                    out.back().weight += weight;
                else {
                    out.push_back({index, weight});
                    last = index;
                }
            };
            for (int32_t k = 0; k < list.count; ++k) {
                const int32_t index = list.taps[k].index, weight = list.taps[k].weight;
                if (weight == 0) continue;
                const int32_t dir =
                    (k == list.count - 1 || list.taps[k + 1].index <= index) ? 1 : -1;
                if ((index & 1) == p)
                    put(index, weight);
                else if (index + 1 < L && index != 0) {
                    const int32_t halfW = weight >> 1;
                    if (index + 1 == last) {
                        out.back().weight += halfW;
                        put(index - 1, weight - halfW);
                    } else if (index - 1 == last) {
                        out.back().weight += halfW;
                        put(index + 1, weight - halfW);
                    } else if (halfW != 0) {
                        put(index + dir, halfW);
                        put(index - dir, weight - halfW);
                    } else
                        put(index - dir, weight);
                } else if (index == 0)
                    put(1, weight);
                else
                    put(index - 1, weight);
            }
            const int32_t n = int32_t(std::min<size_t>(out.size(), size_t(rows.capacity)));
            for (int32_t k = 0; k < n; ++k)
                list.taps[k] = out[size_t(k)];
            list.count = n;
        }
        // Every visited list must be one full tap on a row of its own parity.
        const int32_t e =
            std::max(0, m_targetRect.bottom - std::max(m_placedBounds.bottom, m_targetRect.top));
        int32_t start = 0;
        if (m_field != -1) {
            const int first = DIBFirstFieldRow(m_target, m_field);
            if ((first == 0 && (e & 1)) || (first == 1 && !(e & 1))) start = 1;
        }
        const int32_t step = m_field == -1 ? 1 : 2;
        for (int32_t t = start; t < spanH; t += step) {
            const Fx2dTapList& list = m_rowTaps[t];
            if (list.count != 1 || list.taps[0].weight != full ||
                (list.taps[0].index & 1) != (t & 1))
                m_rowsIdentity = 0;
        }
    }

    // ---- opacity, folded into the weights: each axis takes its square root
    if (m_param.transparency != 0.0) {
        const double tr = Clamp100(m_param.transparency);
        const int32_t a = ClampInt(int32_t(std::sqrt(1.0 - tr * 0.01) * 255.0 + 0.5), 0, 255);
        const int32_t goal = kelp::os::MulDiv(full, a, 255);
        auto fade = [&](Fx2dTapList& list) {
            int32_t sum = 0;
            for (int32_t k = 0; k < list.count; ++k) {
                const int32_t v = list.taps[k].weight * a + 128;
                list.taps[k].weight = (v + (v >> 8)) >> 8;
                sum += list.taps[k].weight;
            }
            if (sum != goal && list.count > 0 && list.biasLuma == 0 && list.biasChroma == 0) {
                Fx2dTap& mid = list.taps[list.count >> 1];
                mid.weight += goal - sum;
                if (mid.weight <= 0) mid.weight = 0;
            }
            if (yuvTarget) {
                list.biasLuma += kelp::os::MulDiv(full * black - list.biasLuma, 255 - a, 255);
                list.biasChroma += kelp::os::MulDiv(full * 128 - list.biasChroma, 255 - a, 255);
            }
        };
        for (int32_t t = 0; t < spanH; ++t)
            fade(m_rowTaps[t]);
        for (int32_t i = 0; i < spanW; ++i)
            fade(m_columnTaps[i]);
    }
    return FX2D_OK;
}

} // namespace stdfx2d
