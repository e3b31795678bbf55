// The readability probe: ranges that are readable, run into a page without access, or
// into a hole, of one page and of many, asked every way the probe knows.
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "runtime/kelpos.h"
#include "runtime/kelpos_probe.h"

namespace {

namespace probe = kelp::os::probe;

// Each way of asking, as a yes or no; a way that does not know on this system is
// reported as such and its answers are not compared.
struct Way {
    const char* name;
    int (*ask)(const void* p, size_t size);
};
const Way kWays[] = {
    {"IsReadable", [](const void* p, size_t n) { return int(kelp::os::IsReadable(p, n)); }},
    {"map query", [](const void* p, size_t n) { return probe::ByMapQuery(uintptr_t(p), n); }},
    {"maps text", [](const void* p, size_t n) { return probe::ByMapsText(uintptr_t(p), n); }},
    {"pages", [](const void* p, size_t n) { return int(probe::ByPages(uintptr_t(p), n)); }},
};

// True while nothing is mapped at the page of p, asked of the kernel another way.
bool Unmapped(void* p) {
    unsigned char resident;
    return mincore(p, 1, &resident) != 0;
}

TEST(ReadableProbe, FindsUnreadablePagesAnywhereInTheRange) {
    const size_t page = size_t(sysconf(_SC_PAGESIZE));
    // Each way asked once first, so that whatever it sets up on its first use is mapped
    // before the hole below is made: a new mapping could otherwise land in it.
    std::vector<unsigned char> warm(4 * page);
    for (const Way& w : kWays)
        w.ask(warm.data(), warm.size());
    auto* map = static_cast<unsigned char*>(
        mmap(nullptr, 8 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(map, MAP_FAILED);
    ASSERT_EQ(mprotect(map + 3 * page, page, PROT_NONE), 0); // page 3: no access
    ASSERT_EQ(munmap(map + 6 * page, page), 0);              // page 6: a hole
    ASSERT_EQ(mprotect(map + 7 * page, page, PROT_READ), 0); // page 7: read only
    // Page 5 is mapped but never touched: readable, it reads as zeros.
    struct Case {
        size_t offset, size;
        bool readable;
    };
    const Case cases[] = {
        {0, 1, true},
        {0, 3 * page, true},
        {100, 3 * page - 100, true},
        {100, 3 * page - 99, false}, // one byte into the page without access
        {3 * page + 7, 1, false},
        {2 * page, 2 * page, false},
        {4 * page, 2 * page, true},      // untouched pages count as readable
        {4 * page, 2 * page + 1, false}, // into the hole
        {6 * page, 2 * page, false},     // out of the hole
        {7 * page, page, true},          // across mappings of other permissions
        {7 * page - 1, 2, false},
        {size_t(-1) / 2, page, false}, // far from any mapping
    };
    ASSERT_TRUE(Unmapped(map + 6 * page));
    for (const Way& w : kWays) {
        if (w.ask(map, page) == probe::kUnknown) {
            std::printf("the %s is not offered here\n", w.name);
            continue;
        }
        for (const Case& t : cases) {
            const unsigned char* p =
                t.offset > 8 * page ? reinterpret_cast<unsigned char*>(t.offset) : map + t.offset;
            EXPECT_EQ(w.ask(p, t.size), int(t.readable))
                << w.name << " " << t.offset << "+" << t.size;
            EXPECT_EQ(w.ask(p, t.size), int(t.readable)) << w.name << " asked again";
        }
    }
    ASSERT_TRUE(Unmapped(map + 6 * page)) << "something was mapped into the hole meanwhile";
    // A long readable range: one answer for all its pages.
    std::string big(3 << 20, 'x');
    for (const Way& w : kWays) {
        if (w.ask(big.data(), 1) != probe::kUnknown) {
            EXPECT_EQ(w.ask(big.data(), big.size()), 1) << w.name;
        }
    }
    EXPECT_FALSE(kelp::os::IsReadable(nullptr, 1));
    EXPECT_TRUE(kelp::os::IsReadable(nullptr, 0));
    EXPECT_FALSE(kelp::os::IsReadable(reinterpret_cast<void*>(~uintptr_t(0) - 10), 100));
    munmap(map, 6 * page);
    munmap(map + 7 * page, page);
}

// A child process has an address space of its own: what it unmaps is unreadable to it,
// though the probe was first used in the parent.
TEST(ReadableProbe, AnswersForTheProcessThatAsks) {
    const size_t page = size_t(sysconf(_SC_PAGESIZE));
    void* map = mmap(nullptr, 4 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(map, MAP_FAILED);
    ASSERT_TRUE(kelp::os::IsReadable(map, 4 * page));
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        munmap(map, 4 * page);
        int code = kelp::os::IsReadable(map, 4 * page) ? 1 : 0;
        if (probe::ByMapQuery(uintptr_t(map), 4 * page) == probe::kYes) code |= 2;
        _exit(code);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_TRUE(kelp::os::IsReadable(map, 4 * page)); // still mapped here
    munmap(map, 4 * page);
}

} // namespace
