// Locks, events and the worker thread with its request and reply handshake.
#pragma once

#include <atomic>

#include "kelpdefs.h"

namespace kelp {

// An opaque handle of an event or a thread.
typedef void* KXHANDLE;

constexpr uint32_t KX_INFINITE = 0xFFFFFFFFu;

// A recursive lock: the thread that holds it may take it again.
class KELP_API CKELPCritSec {
  public:
    CKELPCritSec();
    ~CKELPCritSec();
    CKELPCritSec(const CKELPCritSec&) = delete;
    CKELPCritSec& operator=(const CKELPCritSec&) = delete;
    void Lock();
    void Unlock();

  private:
    alignas(16) unsigned char m_cs[64];
};

// Holds a lock from its constructor to its destructor.
class KELP_API CKELPAutoLock {
  public:
    explicit CKELPAutoLock(CKELPCritSec* lock) : m_pLock(lock) {
        if (m_pLock) m_pLock->Lock();
    }
    ~CKELPAutoLock() {
        if (m_pLock) m_pLock->Unlock();
    }
    CKELPAutoLock(const CKELPAutoLock&) = delete;
    CKELPAutoLock& operator=(const CKELPAutoLock&) = delete;

  private:
    CKELPCritSec* m_pLock;
};

// An event, initially not set. A manual-reset event stays set until Reset; an
// automatic one lets one waiter through and resets itself. Events with the same name
// are one event, within this process only; the manual-reset choice of the first one
// made stands.
class KELP_API CKELPEvent {
  public:
    explicit CKELPEvent(bool manualReset);
    CKELPEvent(const wchar_t* name, bool manualReset);
    ~CKELPEvent();
    CKELPEvent(const CKELPEvent&) = delete;
    CKELPEvent& operator=(const CKELPEvent&) = delete;

    operator KXHANDLE() const { return m_hEvent; }
    void Set();
    void Reset();
    // True if the event was signalled within `ms` milliseconds (KX_INFINITE: no limit);
    // a time-out or a failed wait is false.
    bool Wait(uint32_t ms);
    bool Check() { return Wait(0); }

  private:
    KXHANDLE m_hEvent;
};

// A worker thread for a caller. The owner sends requests with CallWorker, one at a
// time, and waits for the reply; the worker takes a request with GetRequest (or polls
// with CheckRequest) and answers with Reply. The derived class defines the request
// values, among them the one that makes ThreadProc return; its destructor should
// bring the worker to an end and Close it, since the worker runs its ThreadProc.
class KELP_API CKELPThread {
  public:
    CKELPThread();
    virtual ~CKELPThread();
    CKELPThread(const CKELPThread&) = delete;
    CKELPThread& operator=(const CKELPThread&) = delete;

    // Owner: starts the worker, named `name` if given. False if it already runs or
    // cannot be started.
    bool Create(const wchar_t* name = nullptr);
    // True while the worker runs.
    bool ThreadExists();
    // Owner: sends a request and waits for its reply. 0x80004005 at once if the worker
    // does not run.
    uint32_t CallWorker(uint32_t param);
    // Owner: waits for the worker to end and releases it.
    void Close();

    // Worker: waits for a request and gives its parameter.
    uint32_t GetRequest();
    // Worker: true if a request is pending; the parameter goes to `param` if given.
    // The request stays pending until Reply.
    bool CheckRequest(uint32_t* param);
    KXHANDLE GetRequestHandle() const { return m_EventRequest; }
    uint32_t GetRequestParam() const { return m_dwRequestParam; }
    // Worker: answers the pending request.
    void Reply(uint32_t value);

    static uint32_t InitialThreadProc(void* param);

  protected:
    virtual uint32_t ThreadProc() = 0;

    std::atomic<KXHANDLE> m_hThread;
    CKELPEvent m_EventRequest; // manual reset: set while a request is pending
    CKELPEvent m_EventReply;   // automatic reset: set when the reply is ready
    uint32_t m_dwRequestParam;
    uint32_t m_dwReturnVal;
    CKELPCritSec m_AccessLock; // one caller at a time
    CKELPCritSec m_WorkerLock; // for the derived class; the class itself never takes it
};

} // namespace kelp
