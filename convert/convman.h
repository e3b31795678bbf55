// The conversion manager.
#pragma once

#include <list>
#include <vector>

#include <kelp/alloc.h>
#include <kelp/kxconv.h>
#include <kelp/mpheap.h>

#include "tempblocks.h"

namespace kelp {

// Managers live on the library's multi-heap.
class CConversionManager : public IConversionManager, public CKELPHeapObject {
public:
    CConversionManager();           // the first manager in the process creates the built-in stages
    ~CConversionManager() override; // the last one releases them
    CConversionManager(const CConversionManager&) = delete;
    CConversionManager& operator=(const CConversionManager&) = delete;

    // IConverter
    void Release() override { delete this; }
    uint32_t GetVersion() override { return KXCONV_VERSION; }
    KXRESULT GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out, IAllocator* allocator,
                             const KXBMINFOHEADER* target) override;
    // Asks the stages in order; the first that accepts answers. A stage that accepts an
    // output may write into the record what it would make of it (its biSizeImage).
    KXRESULT QueryInput(KXBMINFOHEADER* desc) override;
    KXRESULT QueryOutput(KXBMINFOHEADER* desc) override;
    KXRESULT Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                   int32_t* quality) override;
    KXRESULT Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out, void** outData,
                     uint32_t* flags, int32_t* quality, IAllocator* allocator) override;

    // IConversionManager
    KXRESULT Init(uint32_t version, uint32_t reserved) override;
    KXRESULT RemoveAllConverters() override;
    KXRESULT AddConverter(IConverter* converter) override;
    IAllocator* GetAllocator() override { return &m_allocator; }
    KXRESULT ExtractAlpha(const KXBMINFOHEADER* desc, const void* data, KXBMINFOHEADER** alphaDesc,
                          void** alphaData, IAllocator* allocator) override;
    KXRESULT InsertAlpha(KXBMINFOHEADER* desc, void* data, const KXBMINFOHEADER* alphaDesc,
                         const void* alphaData) override;
    KXRESULT BIHToKXBIH(const KXWINBITMAPINFOHEADER* bih, KXBMINFOHEADER** out,
                        IAllocator* allocator) override;
    KXRESULT KXBIHToBIH(const KXBMINFOHEADER* kxbih, KXWINBITMAPINFOHEADER** out,
                        IAllocator* allocator) override;

    // Runs a chain that the search found, from `in` to `out`: every stage but the last
    // into a temporary format and a buffer from `temporaries` (Convert passes the
    // manager's own allocator, through the blocks it keeps between runs), the last one into `out`
    // through the caller's `allocator`. Temporaries are freed on every path; on success *outData
    // belongs to the caller (or is inData when KXCONV_OUT_SHARED is set).
    KXRESULT RunChain(const std::vector<IConverter*>& chain, KXBMINFOHEADER* in, void* inData,
                      KXBMINFOHEADER* out, void** outData, uint32_t* flags, int32_t* quality,
                      IAllocator* allocator, IAllocator* temporaries);

    const std::list<IConverter*>& Converters() const { return m_converters; }

private:
    KXRESULT QueryOneSide(KXBMINFOHEADER* desc, bool input);

    CDualAllocator m_allocator;
    // The intermediate images of Convert's runs: m_allocator, with frame-sized blocks
    // kept from one run to the next.
    CTempBlocks m_temporaries{&m_allocator};
    std::list<IConverter*> m_converters; // in call order; owned by nobody here
};

} // namespace kelp
