// The manager's life, its list of stages and its format queries.
#include "convman.h"

#include <kelp/trace.h>

#include <new>

#include "catchall.h"
#include "chainsearch.h"
#include "registry.h"

namespace kelp {

CConversionManager::CConversionManager() {
    conv::ManagerCreated(this);
}

CConversionManager::~CConversionManager() {
    RemoveAllConverters();
    conv::ManagerDestroyed();
}

KXRESULT CConversionManager::GetOutputFormat(const KXBMINFOHEADER*, KXBMINFOHEADER**, IAllocator*,
                                             const KXBMINFOHEADER*) {
    return KXE_NOTIMPL;
}

// ---------------------------------------------------------------- the list

KXRESULT CConversionManager::Init(uint32_t, uint32_t) {
    // The list is replaced, not extended: a second Init leaves the same list as the first.
    conv::CopyGlobalConverters(&m_converters);
    return KX_OK;
}

KXRESULT CConversionManager::RemoveAllConverters() {
    m_converters.clear();
    return KX_OK;
}

KXRESULT CConversionManager::AddConverter(IConverter* converter) {
    if (!converter) return KXE_INVALID;
    m_converters.push_back(converter);
    return KX_OK;
}

// ---------------------------------------------------------------- queries

KXRESULT CConversionManager::QueryOneSide(KXBMINFOHEADER* desc, bool input) {
    if (!CheckBIHReadable(desc)) return KXE_INVALID;
    if (KX_FAILED(ValidateBIH(desc))) return KXE_INVALID;
    for (IConverter* stage : m_converters) {
        try {
            KXRESULT r = input ? stage->QueryInput(desc) : stage->QueryOutput(desc);
            if (KX_SUCCEEDED(r)) return KX_OK;
        }
        KELP_CATCH_ALL {} // counts as not accepted
    }
    return KXE_INVALID;
}

KXRESULT CConversionManager::QueryInput(KXBMINFOHEADER* desc) {
    return QueryOneSide(desc, true);
}

KXRESULT CConversionManager::QueryOutput(KXBMINFOHEADER* desc) {
    return QueryOneSide(desc, false);
}

KXRESULT CConversionManager::Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                                   int32_t* quality) {
    // Callers may leave out the flags and the quality; the call then works on local words.
    uint32_t localFlags = 0;
    int32_t localQuality = 0;
    if (!flags) flags = &localFlags;
    if (!quality) quality = &localQuality;

    if (!CheckBIHReadable(in) || !CheckBIHReadable(out)) return KXE_INVALID;
    if (KX_FAILED(ValidateBIH(in))) {
        dbgPrintf(8, 2, L"!!!CConversionManager::Invalid Input BIH");
        return KXE_INVALID;
    }
    if (KX_FAILED(ValidateBIH(out))) {
        dbgPrintf(8, 2, L"!!!CConversionManager::Invalid Output BIH");
        return KXE_INVALID;
    }
    ConversionRequest request(in, out, flags, quality, &m_converters);
    if (!CheckIdentity(request)) {
        // The chain is dropped: Convert searches again.
        if (!CreateConverterList(request)) return KXE_INVALID;
    }
    NormalizeOutput(request);
    return KX_OK;
}

} // namespace kelp

extern "C" kelp::IConversionManager* KXCONVCreateConversionManager() {
    try {
        return new (std::nothrow) kelp::CConversionManager();
    }
    KELP_CATCH_ALL {
        return nullptr;
    }
}
