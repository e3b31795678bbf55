// Backing the pages of a buffer ahead of writing it changes no byte, stays inside the
// buffer's whole pages (a no-access page right after it is never touched), and takes
// ranges of any start, length or state: fresh, partly written, or too small to bother.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "runtime/kelpos.h"

using namespace kelp::os;

TEST(PagePrepareWrite, ChangesNoByteAndStaysInsideTheBuffer) {
    const size_t page = PageSize(), pages = 40;
    uint8_t* block = static_cast<uint8_t*>(PageAlloc((pages + 1) * page));
    ASSERT_NE(block, nullptr);
    ASSERT_TRUE(PageNoAccess(block + pages * page, page)); // a guard right after
    // Some pages written, the rest fresh.
    for (size_t i = 0; i < pages * page; i += 3 * page + 5)
        block[i] = uint8_t(i / page + 1);
    std::vector<uint8_t> before(block, block + pages * page);
    struct Range {
        size_t start, size;
    };
    const Range ranges[] = {
        {0, pages * page},         // the whole block, ending at the guard
        {13, pages * page - 13},   // unaligned start, ending at the guard
        {page / 2, 20 * page + 7}, // unaligned at both ends
        {5 * page, 3 * page},      // too few pages to bother
        {0, 0},                    // nothing
        {pages * page - 1, 1},     // the last byte before the guard
    };
    for (const Range& r : ranges) {
        PagePrepareWrite(block + r.start, r.size);
        ASSERT_EQ(std::memcmp(block, before.data(), before.size()), 0)
            << "start " << r.start << " size " << r.size;
    }
    PagePrepareWrite(nullptr, 100 * page); // no buffer: nothing to do
    // Written after, every page holds what was written.
    for (size_t i = 0; i < pages * page; i += page)
        block[i + 1] = 0xA5;
    for (size_t i = 0; i < pages * page; i += page)
        EXPECT_EQ(block[i + 1], 0xA5);
    PageFree(block);
}
