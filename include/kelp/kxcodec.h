// The codec plug-in contract. A codec plug-in is a shared library with the extension
// ".cdc" that lies beside libkelpu.so. It exports one function, EnumerateCodecs, which
// the library calls once with its codec manager; the entry offers each codec it has by
// AddCodec. The library then asks the codecs, through the operations of ICodec, which
// image descriptors they take, and runs decompress and compress sessions through them.
//
// This header is all a third party needs to build a plug-in (with kelpdefs.h and
// kxbih.h beside it); a plug-in links nothing of the library. See docs/PLUGINS.md.
//
// Binary rules of the contract on this platform (x86-64, Itanium C++ ABI):
// - ICodec and ICodecManager are called through their virtual tables. Their operations
//   are declared here in slot order and must never be reordered, removed or inserted
//   between; the virtual destructor is the first entry (two slots in this ABI).
// - Statuses are KXRESULT (32-bit, negative on failure). Session handles and the free
//   arguments of Configure, Notify, the GetFormat calls, Decompress and Compress are
//   uintptr_t, so that they can carry a pointer.
// - Nothing may leave a codec operation as an exception. The manager catches what does
//   (the entry's exception is swallowed, an operation's becomes KXE_FAIL), but the
//   codec's own state is then whatever the exception left.
#pragma once

#include <cstdint>

#include "kelpdefs.h"
#include "kxbih.h"

namespace kelp {

class IAllocator;

// The version of the contract: the value passed to EnumerateCodecs, the value every
// ICodec::GetVersion must answer (a codec that answers anything else is refused) and
// the manager's own version.
constexpr uint32_t KXCODEC_VERSION = 0x10002;

// ---------------------------------------------------------------- ICodec

// One codec. The object belongs to its plug-in; the library ends it by Release, after
// the last manager of the process has gone and before the plug-in is unloaded.
class ICodec {
  public:
    virtual ~ICodec() {}
    virtual void Release() = 0;
    virtual uint32_t GetVersion() = 0;  // KXCODEC_VERSION
    virtual uint32_t GetPriority() = 0; // of two codecs that take a format, the higher wins
    virtual KXRESULT Open() = 0;        // the manager keeps only a few codecs open
    virtual KXRESULT Close() = 0;
    virtual KXRESULT Configure(uintptr_t arg1, uintptr_t arg2, uintptr_t arg3) = 0;
    // A message to one session (hSession from a Begin) or, with hSession 0, to the codec.
    virtual KXRESULT Notify(uintptr_t arg1, uintptr_t arg2, uintptr_t hSession) = 0;

    // The output format the codec proposes for a compressed source.
    virtual KXRESULT DecompressGetFormat(const KXBMINFOHEADER* src, uintptr_t arg1, uintptr_t arg2,
                                         uintptr_t arg3) = 0;
    // KX_OK (exactly 0) if the codec decompresses `src`, into `dst` if it is not null.
    // The manager finds a decompressor by asking every codec this with a null target.
    virtual KXRESULT DecompressQuery(const KXBMINFOHEADER* src, const KXBMINFOHEADER* dst) = 0;
    // Starts a session and stores its handle in *phSession. The caller presets the handle
    // with the address of `dst`; a codec that needs no session state may leave it.
    virtual KXRESULT DecompressBegin(const KXBMINFOHEADER* src, KXBMINFOHEADER* dst,
                                     uintptr_t* phSession) = 0;
    virtual KXRESULT Decompress(const KXBMINFOHEADER* src, const void* srcBits, KXBMINFOHEADER* dst,
                                uintptr_t arg1, uintptr_t arg2, uintptr_t arg3,
                                uintptr_t hSession) = 0;
    virtual KXRESULT DecompressEnd(uintptr_t hSession) = 0;

    virtual KXRESULT CompressGetFormat(uintptr_t arg1, uintptr_t arg2, uintptr_t arg3) = 0;
    // KX_OK if the codec compresses `src` into `dst`. The manager finds a compressor by
    // what it produces: the target's biCompression.
    virtual KXRESULT CompressQuery(const KXBMINFOHEADER* src, const KXBMINFOHEADER* dst) = 0;
    // As DecompressBegin; the preset handle is the address of `src`.
    virtual KXRESULT CompressBegin(const KXBMINFOHEADER* src, KXBMINFOHEADER* dst,
                                   uintptr_t* phSession) = 0;
    virtual KXRESULT Compress(const KXBMINFOHEADER* src, const void* srcBits, KXBMINFOHEADER* dst,
                              uintptr_t arg1, uintptr_t arg2, uintptr_t arg3,
                              uintptr_t hSession) = 0;
    virtual KXRESULT CompressEnd(uintptr_t hSession) = 0;
};

// ---------------------------------------------------------------- ICodecManager

// The options of ICodecManager::Init.
typedef struct tagCodecManagerInit {
    uint32_t dwSize;    // must be 8, or the options are ignored
    uint32_t dwMaxOpen; // how many codecs are kept open at once; below 2 means 1
} CodecManagerInit;
static_assert(sizeof(CodecManagerInit) == 8 && offsetof(CodecManagerInit, dwSize) == 0 &&
                  offsetof(CodecManagerInit, dwMaxOpen) == 4,
              "CodecManagerInit");

// The registry, itself usable as one universal codec: each operation finds the right
// codec for the descriptor it is given. Its session handles are its own records, which
// name the codec that began the session; they must be ended with DecompressEnd or
// CompressEnd, also after a Begin that failed. A plug-in sees a manager only in its
// entry and uses AddCodec alone.
class ICodecManager : public ICodec {
  public:
    // Offers a codec. `fourcc` names it in the trace only. KX_OK, or KXE_INVALID if the
    // codec's version is not KXCODEC_VERSION (the codec is then neither kept nor
    // released).
    virtual KXRESULT AddCodec(uint32_t fourcc, ICodec* codec) = 0;
    // Takes the process's codecs, sorted by priority (highest first, ties in the order
    // they were added). `options` may be null. Always KX_OK.
    virtual KXRESULT Init(uint32_t reserved, const CodecManagerInit* options) = 0;
    virtual KXRESULT Shutdown() = 0; // closes open codecs and empties the list
    virtual uint32_t GetCodecCount() = 0;
    virtual ICodec* GetCodec(uint32_t index) = 0;
    virtual ICodec* LocateCodec(const KXBMINFOHEADER* desc) = 0; // a decompressor of desc
    virtual IAllocator* GetAllocator() = 0;
};

// ---------------------------------------------------------------- the plug-in entry

// The exported name of the entry. The design's Windows form carries the stdcall
// decoration ("_EnumerateCodecs@8"); this platform has one calling convention and no
// decoration, so the name is plain and the function is extern "C".
#define KXCODEC_ENTRY_NAME "EnumerateCodecs"

// The entry: calls manager->AddCodec once for each codec to offer. `version` is
// KXCODEC_VERSION. The result is not looked at. An exception that leaves the entry is
// swallowed; the codecs added before it stay. The entry must not make a manager.
typedef KXRESULT (*PFN_ENUMERATECODECS)(ICodecManager* manager, uint32_t version);

} // namespace kelp

// Declares the entry of a plug-in with the right linkage and visibility:
//     KXCODEC_PLUGIN_ENTRY KXRESULT EnumerateCodecs(kelp::ICodecManager* m, uint32_t v) {...}
#define KXCODEC_PLUGIN_ENTRY extern "C" __attribute__((visibility("default")))

namespace kelp {

// ---------------------------------------------------------------- the kelp plug-ins
// The meaning of the free arguments belongs to each plug-in. The plug-ins shipped with
// kelp ("mjpeg.cdc", "dv.cdc") and the codecs that want to look like them use these
// conventions; a host that drives another plug-in must know that plug-in's own.
//
// Pixel buffers are DIB rows: BGR 24 or 32 bits (biCompression 0), rows padded to a
// multiple of 4 bytes (or unpadded when bmiAlignment is the exact row size), bottom-up
// when biHeight is positive and top-down when it is negative. A compressed frame's
// length is its descriptor's biSizeImage, which must not be 0.
//
// Decompress(src, srcBits, dst, arg1, arg2, arg3, hSession):
//   arg1  void*      where the pixels go (required)
//   arg2  capacity   bytes available at arg1; too few gives KXE_INVALID, nothing written
//   arg3  uint32_t*  receives the bytes written, or 0
//   On success dst->biSizeImage is the number of bytes written.
// Compress(src, srcBits, dst, arg1, arg2, arg3, hSession):
//   arg1  void*      where the compressed frame goes (required)
//   arg2  capacity   bytes available at arg1; a frame that does not fit gives
//                    KXE_INVALID and leaves at most arg2 bytes written
//   arg3  uint32_t*  receives the frame's length, or 0
//   On success dst->biSizeImage is the frame's length.
// DecompressGetFormat(src, arg1, arg2, arg3):
//   arg1  KXBMINFOHEADER*  receives the proposed output record (144 bytes)
//   arg2  capacity         bytes available at arg1, at least 144
//   arg3  bit count        24 or 32, or 0 for 24
// CompressGetFormat(arg1, arg2, arg3):
//   arg1  const KXBMINFOHEADER*  the uncompressed source
//   arg2  KXBMINFOHEADER*        receives the proposed compressed record (144 bytes),
//                                with biSizeImage the largest frame the codec can make
//   arg3  capacity               bytes available at arg2, at least 144
// Configure(code, value, extra) and Notify(code, value, hSession): codes below. An
// unknown code gives KXE_NOTIMPL.

constexpr uintptr_t KXCODEC_CFG_DESCRIBE = KXFOURCC('D', 'E', 'S', 'C');
constexpr uintptr_t KXCODEC_CFG_QUALITY = KXFOURCC('Q', 'U', 'A', 'L');

// Configure(KXCODEC_CFG_DESCRIBE, (uintptr_t)&desc, sizeof desc): fills in what the codec
// is. desc.dwSize must be set by the caller to the size of the record.
typedef struct tagKXCODECDESC {
    uint32_t dwSize;       // sizeof(KXCODECDESC)
    uint32_t fccCodec;     // the codec's own format code, e.g. 'MJPG'
    uint32_t dwCaps;       // KXCODEC_CAN_*
    uint32_t dwReserved;   // 0
    char szName[64];       // short name, UTF-8, terminated
    char szDecompress[96]; // what it decompresses, in words, terminated
    char szCompress[96];   // what it compresses, in words, terminated
} KXCODECDESC;
constexpr uint32_t KXCODEC_CAN_DECOMPRESS = 1;
constexpr uint32_t KXCODEC_CAN_COMPRESS = 2;
static_assert(sizeof(KXCODECDESC) == 272 && offsetof(KXCODECDESC, fccCodec) == 4 &&
                  offsetof(KXCODECDESC, dwCaps) == 8 && offsetof(KXCODECDESC, szName) == 16 &&
                  offsetof(KXCODECDESC, szDecompress) == 80 &&
                  offsetof(KXCODECDESC, szCompress) == 176,
              "KXCODECDESC");

// Quality of compression, 1 (smallest) to 100 (best), for codecs that have one.
// Configure(KXCODEC_CFG_QUALITY, q, 0) sets the codec's quality, which every session begun
// later takes as its own. Notify(KXCODEC_CFG_QUALITY, q, hSession) changes one running
// session; with hSession 0 it acts as Configure, so that a manager's Notify without a
// session reaches every codec. A codec without a quality answers KXE_NOTIMPL.
constexpr uint32_t KXCODEC_QUALITY_MIN = 1;
constexpr uint32_t KXCODEC_QUALITY_MAX = 100;

// ---------------------------------------------------------------- for hosts

// Makes a codec manager; null if memory runs out. End it with Release. The first
// manager of the process loads the plug-ins; the last one to go unloads them.
KELP_API ICodecManager* KXCODECCreateCodecManager();

} // namespace kelp
