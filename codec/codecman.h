// The codec manager: takes its own sorted copy of the process's codecs and stands as one
// universal codec in front of them, finding the right one for each descriptor.
#pragma once

#include <kelp/alloc.h>
#include <kelp/kxcodec.h>
#include <kelp/mpheap.h>

#include <vector>

namespace kelp {

class CCodecManager : public ICodecManager, public CKELPHeapObject {
  public:
    static constexpr uint32_t kDefaultMaxOpen = 3;

    CCodecManager();
    ~CCodecManager() override;
    CCodecManager(const CCodecManager&) = delete;
    CCodecManager& operator=(const CCodecManager&) = delete;

    // ICodec
    void Release() override;
    uint32_t GetVersion() override { return KXCODEC_VERSION; }
    uint32_t GetPriority() override { return 0; }
    KXRESULT Open() override { return KXE_INVALID; }
    KXRESULT Close() override { return KXE_INVALID; }
    KXRESULT Configure(uintptr_t, uintptr_t, uintptr_t) override { return KXE_INVALID; }
    KXRESULT Notify(uintptr_t arg1, uintptr_t arg2, uintptr_t hSession) override;
    KXRESULT DecompressGetFormat(const KXBMINFOHEADER* src, uintptr_t arg1, uintptr_t arg2,
                                 uintptr_t arg3) override;
    KXRESULT DecompressQuery(const KXBMINFOHEADER* src, const KXBMINFOHEADER* dst) override;
    KXRESULT DecompressBegin(const KXBMINFOHEADER* src, KXBMINFOHEADER* dst,
                             uintptr_t* phSession) override;
    KXRESULT Decompress(const KXBMINFOHEADER* src, const void* srcBits, KXBMINFOHEADER* dst,
                        uintptr_t arg1, uintptr_t arg2, uintptr_t arg3,
                        uintptr_t hSession) override;
    KXRESULT DecompressEnd(uintptr_t hSession) override;
    KXRESULT CompressGetFormat(uintptr_t, uintptr_t, uintptr_t) override { return KXE_INVALID; }
    KXRESULT CompressQuery(const KXBMINFOHEADER* src, const KXBMINFOHEADER* dst) override;
    KXRESULT CompressBegin(const KXBMINFOHEADER* src, KXBMINFOHEADER* dst,
                           uintptr_t* phSession) override;
    KXRESULT Compress(const KXBMINFOHEADER* src, const void* srcBits, KXBMINFOHEADER* dst,
                      uintptr_t arg1, uintptr_t arg2, uintptr_t arg3, uintptr_t hSession) override;
    KXRESULT CompressEnd(uintptr_t hSession) override;

    // ICodecManager
    KXRESULT AddCodec(uint32_t fourcc, ICodec* codec) override;
    KXRESULT Init(uint32_t reserved, const CodecManagerInit* options) override;
    KXRESULT Shutdown() override;
    uint32_t GetCodecCount() override { return uint32_t(m_codecs.size()); }
    ICodec* GetCodec(uint32_t index) override;
    ICodec* LocateCodec(const KXBMINFOHEADER* desc) override;
    IAllocator* GetAllocator() override { return m_pAllocator; }

    // Opens a codec and keeps it in the open list; beyond the open limit, the codec
    // opened longest ago is closed. KX_OK if it was open already.
    virtual KXRESULT OpenCodec(ICodec* codec);
    // Closes a codec of the open list; KXE_FAIL if it is not in it.
    virtual KXRESULT CloseCodec(ICodec* codec);

    uint32_t GetMaxOpen() const { return m_dwMaxOpen; }
    const std::vector<ICodec*>& OpenList() const { return m_open; }

  private:
    // Loads the plug-ins into the process-wide registry; 1 if any codec came, else 0.
    int InitGlobal();
    static void EndGlobal();
    // Begins a session on `codec` and makes the caller's record for it.
    template <class BeginOp>
    KXRESULT BeginSession(ICodec* codec, uintptr_t preset, uintptr_t* phSession,
                          const KXBMINFOHEADER* src, const KXBMINFOHEADER* dst,
                          const wchar_t* failure, BeginOp begin);

    std::vector<ICodec*> m_codecs; // sorted by priority after Init
    uint32_t m_dwMaxOpen;
    std::vector<ICodec*> m_open; // the one opened longest ago first
    IAllocator* m_pAllocator;    // a CDualAllocator of its own, or null
};

} // namespace kelp
