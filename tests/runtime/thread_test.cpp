// Locks, events and the worker thread's request and reply handshake.
#include <gtest/gtest.h>

#include <kelp/kelpthread.h>

#include <pthread.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "runtime/kelpos.h"

using kelp::CKELPAutoLock;
using kelp::CKELPCritSec;
using kelp::CKELPEvent;
using kelp::CKELPThread;
using kelp::KX_INFINITE;
using kelp::KXHANDLE;

namespace {

constexpr uint32_t kStop = 0xFFFF;
constexpr uint32_t kFailed = 0x80004005u;

// Doubles each request until it gets kStop; remembers its own thread name.
class Doubler : public CKELPThread {
  public:
    ~Doubler() override { Close(); }
    KXHANDLE Handle() const { return m_hThread.load(); }
    std::string name;

  protected:
    uint32_t ThreadProc() override {
        for (;;) {
            uint32_t r = GetRequest();
            if (r == kStop) {
                Reply(0);
                return 7;
            }
            if (r == 1000) { // a request comes only after Create has named the thread
                char buf[32] = {0};
                pthread_getname_np(pthread_self(), buf, sizeof buf);
                name = buf;
            }
            Reply(r * 2);
        }
    }
};

// Runs a function as its ThreadProc.
class Scripted : public CKELPThread {
  public:
    explicit Scripted(uint32_t (*proc)(Scripted*)) : m_proc(proc) {}
    ~Scripted() override { Close(); }
    using CKELPThread::CheckRequest;
    using CKELPThread::GetRequest;
    using CKELPThread::Reply;
    CKELPEvent ready{true};
    CKELPEvent go{true};
    CKELPEvent proceed{true};

  protected:
    uint32_t ThreadProc() override { return m_proc(this); }

  private:
    uint32_t (*m_proc)(Scripted*);
};

} // namespace

TEST(Thread, HandshakeServesEveryCallerInTurn) {
    Doubler w;
    EXPECT_FALSE(w.ThreadExists());
    ASSERT_TRUE(w.Create(L"KelpDoubler"));
    EXPECT_TRUE(w.ThreadExists());
    EXPECT_EQ(w.CallWorker(21), 42u);

    // Four callers at once: each request is in flight alone and gets its own reply.
    std::vector<std::thread> callers;
    std::atomic<int> wrong{0};
    for (uint32_t t = 0; t < 4; ++t)
        callers.emplace_back([&w, &wrong, t] {
            for (uint32_t i = 1; i <= 200; ++i)
                if (w.CallWorker(t * 1000 + i) != (t * 1000 + i) * 2) ++wrong;
        });
    for (auto& c : callers)
        c.join();
    EXPECT_EQ(wrong.load(), 0);

    EXPECT_EQ(w.CallWorker(kStop), 0u);
    w.Close();
    EXPECT_FALSE(w.ThreadExists());
    EXPECT_EQ(w.Handle(), nullptr);
}

TEST(Thread, CheckRequestWithoutPointerLeavesTheRequestPending) {
    Scripted w([](Scripted* self) -> uint32_t {
        bool early = self->CheckRequest(nullptr); // nothing pending yet
        self->ready.Set();
        while (!self->CheckRequest(nullptr))
            kelp::os::YieldThread();
        // Still pending: a second look, a look with a pointer and GetRequest all see it.
        uint32_t p = 0;
        bool again = self->CheckRequest(nullptr) && self->CheckRequest(&p);
        bool same = self->GetRequest() == p && self->GetRequestParam() == p;
        self->Reply(!early && again && same ? p + 1 : 0);
        return 0;
    });
    ASSERT_TRUE(w.Create(nullptr));
    ASSERT_TRUE(w.ready.Wait(5000));
    EXPECT_EQ(w.CallWorker(41), 42u);
    w.Close();
}

TEST(Thread, CallWorkerAfterTheWorkerEndedFailsAtOnce) {
    Scripted w([](Scripted*) -> uint32_t { return 5; });
    ASSERT_TRUE(w.Create(L"short"));
    while (w.ThreadExists())
        kelp::os::YieldThread();
    EXPECT_EQ(w.CallWorker(1), kFailed);
    // An ended worker can be started again.
    ASSERT_TRUE(w.Create(nullptr));
    w.Close();
    EXPECT_EQ(w.CallWorker(1), kFailed); // closed: no worker
}

TEST(Thread, CreateOnARunningWorkerChangesNothing) {
    Doubler w;
    ASSERT_TRUE(w.Create(L"first"));
    KXHANDLE h = w.Handle();
    EXPECT_FALSE(w.Create(L"second"));
    EXPECT_EQ(w.Handle(), h);
    EXPECT_EQ(w.CallWorker(3), 6u);
    w.CallWorker(kStop);
}

TEST(Thread, ExtraReplyAnswersTheNextCallAtOnce) {
    Scripted w([](Scripted* self) -> uint32_t {
        uint32_t p = self->GetRequest();
        self->Reply(p);
        self->go.Wait(KX_INFINITE); // the owner has read the reply
        self->Reply(99);            // no request in flight
        self->ready.Set();
        self->proceed.Wait(KX_INFINITE);
        uint32_t q = self->GetRequest();
        self->Reply(q + 1000);
        return 0;
    });
    ASSERT_TRUE(w.Create(nullptr));
    EXPECT_EQ(w.CallWorker(1), 1u);
    w.go.Set();
    ASSERT_TRUE(w.ready.Wait(5000));
    EXPECT_EQ(w.CallWorker(2), 99u); // the old reply, while request 2 is still pending
    w.proceed.Set();
    w.Close(); // the worker answers request 2 and ends
}

TEST(Thread, WorkerIsNamedWithinThePlatformLimit) {
    const struct {
        const wchar_t* name;
        const char* expected;
    } cases[] = {
        {L"KelpWorker", "KelpWorker"},
        {L"KelpWorkerWithALongName", "KelpWorkerWithA"}, // 15 bytes
        {L"\u00DCberl\u00E4nge-Arbeiter", "\xC3\x9C"
                                          "berl\xC3\xA4nge-Arb"}, // 15 bytes
        {L"\u65E5\u672C\u8A9E\u306E\u30B9\u30EC\u30C3\u30C9",
         "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E\xE3\x81\xAE\xE3\x82\xB9"}, // 5 whole characters
    };
    for (const auto& c : cases) {
        Doubler w;
        ASSERT_TRUE(w.Create(c.name));
        EXPECT_EQ(w.CallWorker(1000), 2000u);
        EXPECT_EQ(w.CallWorker(kStop), 0u);
        w.Close();
        EXPECT_EQ(w.name, c.expected);
    }
    EXPECT_EQ(kelp::os::CutUtf8("abc", 15), "abc");
    EXPECT_EQ(kelp::os::CutUtf8("\xC3\xA4\xC3\xA4", 3), "\xC3\xA4");
}

TEST(Event, ResetModesAndTimeouts) {
    const struct {
        bool manual;
        bool secondWait;
    } cases[] = {{true, true}, {false, false}};
    for (const auto& c : cases) {
        CKELPEvent e(c.manual);
        EXPECT_NE(static_cast<KXHANDLE>(e), nullptr);
        EXPECT_FALSE(e.Check());
        EXPECT_FALSE(e.Wait(20)); // a time-out is not signalled
        e.Set();
        EXPECT_TRUE(e.Wait(KX_INFINITE));
        EXPECT_EQ(e.Check(), c.secondWait);
        e.Set();
        e.Reset();
        EXPECT_FALSE(e.Check());
    }
}

TEST(Event, AutomaticResetLetsOneWaiterThrough) {
    CKELPEvent e(false);
    std::atomic<int> through{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i)
        waiters.emplace_back([&] {
            if (e.Wait(KX_INFINITE)) ++through;
        });
    for (int i = 1; i <= 3; ++i) {
        e.Set();
        while (through.load() < i)
            kelp::os::YieldThread();
        kelp::os::Sleep(5);
        EXPECT_EQ(through.load(), i);
    }
    for (auto& t : waiters)
        t.join();
}

TEST(Event, NamesAreSharedWithinTheProcess) {
    CKELPEvent a(L"kelp.test.event", true);
    {
        CKELPEvent b(L"kelp.test.event", false); // the name exists: its manual reset stands
        EXPECT_EQ(static_cast<KXHANDLE>(a), static_cast<KXHANDLE>(b));
        CKELPEvent other(L"kelp.test.other", true);
        CKELPEvent unnamed(true);
        b.Set();
        EXPECT_TRUE(a.Check());
        EXPECT_TRUE(a.Check()); // manual
        EXPECT_FALSE(other.Check());
        EXPECT_FALSE(unnamed.Check());
    }
    EXPECT_TRUE(a.Check()); // the event outlives one of its two handles
    a.Reset();
    CKELPEvent c(L"kelp.test.event", true);
    EXPECT_EQ(static_cast<KXHANDLE>(a), static_cast<KXHANDLE>(c));
    c.Set();
    EXPECT_TRUE(a.Check());
}

TEST(Lock, AutoLockExcludesOtherThreadsAndNests) {
    CKELPCritSec cs;
    int counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 5000; ++i) {
                CKELPAutoLock outer(&cs);
                CKELPAutoLock inner(&cs); // the holder may take it again
                ++counter;
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(counter, 20000);
    CKELPAutoLock none(nullptr); // no lock: nothing to do
}
