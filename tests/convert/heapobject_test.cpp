#include <gtest/gtest.h>

#include <kelp/kelp.h>


// The manager is one of the library's own objects: it comes from the multi-heap.
TEST(ConversionManagerHeap, ManagerLivesOnTheMultiHeap) {
    kelp::IConversionManager* cm = KXCONVCreateConversionManager();
    ASSERT_NE(cm, nullptr);
    void* block = dynamic_cast<void*>(cm);
    EXPECT_TRUE(kelp::MpHeapValidate(kelp::GetMPHeap(), block));
    cm->Release();
}
