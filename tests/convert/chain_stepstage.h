// A stage for search tests that moves one number of the record, biXPelsPerMeter (which
// no comparison reads), by a fixed step toward the target, at a fixed cost. It never
// overshoots the target, and it records where its proposals were put.
#pragma once

#include <cstring>
#include <stdexcept>
#include <vector>

#include "convert/converter.h"

namespace kelptest {

class StepStage : public kelp::CConverter {
  public:
    // `from`: the only value the stage reads (any if negative).
    StepStage(const wchar_t* name, int32_t step, int32_t cost, int32_t from = -1)
        : CConverter(name), m_step(step), m_cost(cost), m_from(from) {}

    KXRESULT GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out,
                             kelp::IAllocator* allocator, const KXBMINFOHEADER* target) override {
        if (in->biXPelsPerMeter + m_step > target->biXPelsPerMeter) return KXE_INVALID;
        auto* f = static_cast<KXBMINFOHEADER*>(allocator->Allocate(in->biSize, 0));
        if (!f) return KXE_OUTOFMEMORY;
        std::memcpy(f, in, in->biSize);
        f->biXPelsPerMeter += m_step;
        proposals.push_back(f);
        *out = f;
        return KX_OK;
    }
    KXRESULT QueryInput(KXBMINFOHEADER* d) override {
        return m_from < 0 || d->biXPelsPerMeter == m_from ? KX_OK : KXE_INVALID;
    }
    KXRESULT QueryOutput(KXBMINFOHEADER*) override { return KX_OK; }
    KXRESULT Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t*, int32_t* q) override {
        ++queries;
        if (throwInQuery) throw std::runtime_error("stage");
        if (KX_FAILED(QueryInput(in))) return KXE_INVALID;
        if (out->biXPelsPerMeter != in->biXPelsPerMeter + m_step) return KXE_INVALID;
        *q += m_cost;
        return KX_OK;
    }
    KXRESULT Convert(KXBMINFOHEADER*, void*, KXBMINFOHEADER*, void**, uint32_t*, int32_t*,
                     kelp::IAllocator*) override {
        return KXE_NOTIMPL;
    }

    std::vector<const void*> proposals;
    int queries = 0;
    bool throwInQuery = false;

  private:
    int32_t m_step, m_cost, m_from;
};

} // namespace kelptest
