// Settings written by several processes at once, and by a process killed mid-write.
#include <gtest/gtest.h>

#include <kelp/kelpcfg.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "cfgtemp.h"
#include "runtime/kelpos.h"
#include "runtime/storefile.h"

namespace {

// Counts the settings of one section.
int CountIn(kelp::IKELPCfg& cfg, const char* section) {
    static std::string s_section;
    static int s_count;
    s_section = std::string(section) + "\\";
    s_count = 0;
    cfg.EnumSettings(
        [](const char* name, uint32_t, const void*, uint32_t, uint32_t) {
            if (std::string(name).compare(0, s_section.size(), s_section) == 0) ++s_count;
            return 1;
        },
        0);
    return s_count;
}

} // namespace

TEST(CfgProcess, TwoProcessesWritingAtOnceKeepEveryKey) {
    kelptest::TempSettings temp;
    kelp::IKELPCfg& cfg = kelp::KELPGetCfg(false);
    ASSERT_TRUE(cfg.WriteSettingInt("Start", "k", 0)); // the file exists before both begin
    constexpr int kKeys = 1000;

    int go[2];
    ASSERT_EQ(pipe(go), 0);
    pid_t children[2];
    for (int c = 0; c < 2; ++c) {
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            close(go[1]);
            char b;
            if (read(go[0], &b, 1) != 0) _exit(3); // starts when the pipe closes
            std::string section = "Writer" + std::to_string(c);
            int failed = 0;
            for (int i = 0; i < kKeys; ++i) {
                std::string key = "key" + std::to_string(i);
                if (!kelp::KELPGetCfg(false).WriteSettingInt(section.c_str(), key.c_str(),
                                                             i * 2 + c))
                    ++failed;
            }
            _exit(failed ? 1 : 0);
        }
        children[c] = pid;
    }
    close(go[0]);
    close(go[1]); // both start now
    for (pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
    }

    EXPECT_EQ(CountIn(cfg, "Writer0"), kKeys);
    EXPECT_EQ(CountIn(cfg, "Writer1"), kKeys);
    for (int c = 0; c < 2; ++c)
        for (int i = 0; i < kKeys; i += 37) {
            std::string section = "Writer" + std::to_string(c), key = "key" + std::to_string(i);
            int v = -1;
            EXPECT_TRUE(cfg.ReadSettingInt(section.c_str(), key.c_str(), v));
            EXPECT_EQ(v, i * 2 + c);
        }
}

TEST(CfgProcess, WriterKilledMidWriteLosesNothingCommitted) {
    kelptest::TempSettings temp;
    kelp::IKELPCfg& cfg = kelp::KELPGetCfg(false);
    std::mt19937 rng(11);
    for (int round = 0; round < 6; ++round) {
        SCOPED_TRACE(round);
        std::string section = "Round" + std::to_string(round);
        int acks[2];
        ASSERT_EQ(pipe(acks), 0);
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            close(acks[0]);
            // Each key is reported once its write has returned, never before.
            for (int i = 0;; ++i) {
                std::string key = "key" + std::to_string(i);
                std::string value(1 + i % 300, char('a' + i % 26));
                if (!kelp::KELPGetCfg(false).WriteSettingStringA(section.c_str(), key.c_str(),
                                                                 value.c_str()))
                    _exit(1);
                if (write(acks[1], &i, sizeof i) != sizeof i) _exit(2);
            }
        }
        close(acks[1]);
        const int want = 20 + int(rng() % 200);
        int last = -1, got = 0;
        while (got < want && read(acks[0], &last, sizeof last) == sizeof last)
            ++got;
        // Let it run into the middle of some later write, then kill it.
        kelp::os::Sleep(rng() % 3);
        kill(pid, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the writer stopped by itself: " << status;
        int more;
        while (read(acks[0], &more, sizeof more) == sizeof more)
            last = more; // in the pipe
        close(acks[0]);
        ASSERT_GE(last, want - 1);

        // Every key reported is there with its value, and the store still reads and
        // takes writes.
        for (int i = 0; i <= last; ++i) {
            std::string key = "key" + std::to_string(i);
            char buf[400] = "";
            ASSERT_TRUE(cfg.ReadSettingStringA(section.c_str(), key.c_str(), buf, sizeof buf))
                << key;
            EXPECT_EQ(std::string(buf), std::string(1 + i % 300, char('a' + i % 26)));
        }
        EXPECT_GE(CountIn(cfg, section.c_str()), last + 1);
        EXPECT_TRUE(cfg.WriteSettingInt("After", section.c_str(), round));
    }
    for (int round = 0; round < 6; ++round) {
        int v = -1;
        EXPECT_TRUE(cfg.ReadSettingInt("After", ("Round" + std::to_string(round)).c_str(), v));
        EXPECT_EQ(v, round);
    }
}

TEST(CfgProcess, ThreadsOfOneProcessWritingAtOnceKeepEveryKey) {
    kelptest::TempSettings temp;
    kelp::IKELPCfg& cfg = kelp::KELPGetCfg(false);
    std::vector<std::thread> threads;
    std::atomic<int> failed{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&cfg, &failed, t] {
            std::string section = "Thread" + std::to_string(t);
            for (int i = 0; i < 50; ++i) {
                std::string key = "key" + std::to_string(i);
                if (!cfg.WriteSettingInt64(section.c_str(), key.c_str(), int64_t(t) << 32 | i))
                    ++failed;
                int64_t v = -1;
                if (!cfg.ReadSettingInt64(section.c_str(), key.c_str(), v) ||
                    v != (int64_t(t) << 32 | i))
                    ++failed;
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(failed.load(), 0);
    for (int t = 0; t < 4; ++t)
        EXPECT_EQ(CountIn(cfg, ("Thread" + std::to_string(t)).c_str()), 50);
}
