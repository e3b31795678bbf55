// The readability probe: ranges that are readable, run into a page without access, or
// into a hole, of one page and of many.
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include "runtime/kelpos.h"

namespace {

TEST(ReadableProbe, FindsUnreadablePagesAnywhereInTheRange) {
    const size_t page = size_t(sysconf(_SC_PAGESIZE));
    auto* map = static_cast<unsigned char*>(
        mmap(nullptr, 8 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(map, MAP_FAILED);
    ASSERT_EQ(mprotect(map + 3 * page, page, PROT_NONE), 0); // page 3: no access
    ASSERT_EQ(munmap(map + 6 * page, page), 0);              // page 6: a hole
    // Page 5 is mapped but never touched: readable, it reads as zeros.
    struct Case {
        size_t offset, size;
        bool readable;
    };
    const Case cases[] = {
        {0, 0, true},
        {0, 3 * page, true},
        {100, 3 * page - 100, true},
        {100, 3 * page - 99, false}, // one byte into the page without access
        {2 * page, 2 * page, false},
        {4 * page, 2 * page, true},      // untouched pages count as readable
        {4 * page, 2 * page + 1, false}, // into the hole
        {7 * page, page, true},
    };
    for (const Case& t : cases) {
        EXPECT_EQ(kelp::os::IsReadable(map + t.offset, t.size), t.readable)
            << t.offset << "+" << t.size;
        EXPECT_EQ(kelp::os::IsReadable(map + t.offset, t.size), t.readable);
    }
    EXPECT_FALSE(kelp::os::IsReadable(nullptr, 1));
    EXPECT_TRUE(kelp::os::IsReadable(nullptr, 0));
    EXPECT_FALSE(kelp::os::IsReadable(reinterpret_cast<void*>(~uintptr_t(0) - 10), 100));
    munmap(map, 6 * page);
    munmap(map + 7 * page, page);
}

} // namespace
