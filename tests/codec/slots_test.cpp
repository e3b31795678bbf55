// The plug-in contract is a virtual table: a plug-in built against kxcodec.h and the
// library must agree on the slot of every operation. In the Itanium C++ ABI a pointer to
// a virtual member function holds 1 + the byte offset of its slot; the virtual
// destructor takes the first two slots.
#include <gtest/gtest.h>

#include <cstring>

#include "codec/codecman.h"

namespace {

template <class F> size_t SlotOf(F member) {
    static_assert(sizeof(F) == 2 * sizeof(uintptr_t), "Itanium member function pointer");
    uintptr_t words[2];
    std::memcpy(words, &member, sizeof(words));
    EXPECT_EQ(words[0] & 1, 1u) << "virtual";
    return (words[0] - 1) / sizeof(void*);
}

TEST(CodecContract, OperationsKeepTheirSlots) {
    using kelp::CCodecManager;
    using kelp::ICodec;
    using kelp::ICodecManager;
    const size_t slots[] = {
        SlotOf(&ICodec::Release),
        SlotOf(&ICodec::GetVersion),
        SlotOf(&ICodec::GetPriority),
        SlotOf(&ICodec::Open),
        SlotOf(&ICodec::Close),
        SlotOf(&ICodec::Configure),
        SlotOf(&ICodec::Notify),
        SlotOf(&ICodec::DecompressGetFormat),
        SlotOf(&ICodec::DecompressQuery),
        SlotOf(&ICodec::DecompressBegin),
        SlotOf(&ICodec::Decompress),
        SlotOf(&ICodec::DecompressEnd),
        SlotOf(&ICodec::CompressGetFormat),
        SlotOf(&ICodec::CompressQuery),
        SlotOf(&ICodec::CompressBegin),
        SlotOf(&ICodec::Compress),
        SlotOf(&ICodec::CompressEnd),
        SlotOf(&ICodecManager::AddCodec),
        SlotOf(&ICodecManager::Init),
        SlotOf(&ICodecManager::Shutdown),
        SlotOf(&ICodecManager::GetCodecCount),
        SlotOf(&ICodecManager::GetCodec),
        SlotOf(&ICodecManager::LocateCodec),
        SlotOf(&ICodecManager::GetAllocator),
        SlotOf(&CCodecManager::OpenCodec),
        SlotOf(&CCodecManager::CloseCodec),
    };
    // The destructor in slots 0 and 1, then the designed order without a gap.
    for (size_t i = 0; i < sizeof(slots) / sizeof(slots[0]); ++i)
        EXPECT_EQ(slots[i], i + 2) << "operation " << i + 2 << " of the contract";
}

} // namespace
