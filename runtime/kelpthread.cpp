// Locks, events and the worker thread.
#include <kelp/kelpthread.h>

#include <kelp/trace.h>

#include <new>

#include "eventobject.h"
#include "kelpos.h"
#include "threadhook.h"

namespace kelp {

// ---------------------------------------------------------------- CKELPCritSec

static_assert(sizeof(os::CriticalSection) <= 64, "CKELPCritSec storage");
static_assert(alignof(os::CriticalSection) <= 16, "CKELPCritSec alignment");

static os::CriticalSection* Cs(unsigned char* storage) {
    return reinterpret_cast<os::CriticalSection*>(storage);
}

CKELPCritSec::CKELPCritSec() {
    new (m_cs) os::CriticalSection();
}
CKELPCritSec::~CKELPCritSec() {
    Cs(m_cs)->~CriticalSection();
}
void CKELPCritSec::Lock() {
    Cs(m_cs)->Enter();
}
void CKELPCritSec::Unlock() {
    Cs(m_cs)->Leave();
}

// ---------------------------------------------------------------- CKELPEvent

CKELPEvent::CKELPEvent(bool manualReset) : m_hEvent(OpenEvent(nullptr, manualReset)) {}
CKELPEvent::CKELPEvent(const wchar_t* name, bool manualReset)
    : m_hEvent(OpenEvent(name, manualReset)) {}

CKELPEvent::~CKELPEvent() {
    if (m_hEvent && !CloseEvent(m_hEvent)) dbgAssert("CloseHandle(m_hEvent)", ".\\kelpos", 480, 8);
}

void CKELPEvent::Set() {
    if (os::Event* e = EventOf(m_hEvent)) e->Set();
}
void CKELPEvent::Reset() {
    if (os::Event* e = EventOf(m_hEvent)) e->Reset();
}
bool CKELPEvent::Wait(uint32_t ms) {
    os::Event* e = EventOf(m_hEvent);
    return e && e->Wait(ms);
}

// ---------------------------------------------------------------- CKELPThread

static_assert(KX_INFINITE == os::kInfinite, "one infinite wait");

static os::ThreadHandle* Th(KXHANDLE h) {
    return static_cast<os::ThreadHandle*>(h);
}

CKELPThread::CKELPThread()
    : m_hThread(nullptr), m_EventRequest(true), m_EventReply(false), m_dwRequestParam(0),
      m_dwReturnVal(0) {}

// Waits for a worker that still runs. The handle is released whether or not the worker
// had ended already: nothing else could release it later.
CKELPThread::~CKELPThread() {
    os::ThreadHandle* h = Th(m_hThread.load());
    if (!h) return;
    if (ThreadExists()) os::WaitThread(h, os::kInfinite);
    os::CloseThread(h);
    m_hThread.store(nullptr);
}

uint32_t CKELPThread::InitialThreadProc(void* param) {
    return static_cast<CKELPThread*>(param)->ThreadProc();
}

bool CKELPThread::Create(const wchar_t* name) {
    CKELPAutoLock lock(&m_AccessLock);
    if (ThreadExists()) return false;
    os::ThreadHandle* h = os::CreateThread(&CKELPThread::InitialThreadProc, this);
    if (!h) return false;
    // The handle of a worker that has ended is released here rather than lost.
    os::ThreadHandle* old = Th(m_hThread.exchange(h));
    if (old) os::CloseThread(old);
    if (name) RegisterThread(h, name);
    return true;
}

bool CKELPThread::ThreadExists() {
    os::ThreadHandle* h = Th(m_hThread.load());
    uint32_t code = 0;
    return h && os::GetExitCodeThread(h, &code) && code == os::kStillActive;
}

uint32_t CKELPThread::CallWorker(uint32_t param) {
    CKELPAutoLock lock(&m_AccessLock);
    if (!ThreadExists()) return uint32_t(KXE_FAIL);
    m_dwRequestParam = param;
    m_EventRequest.Set();
    m_EventReply.Wait(KX_INFINITE);
    return m_dwReturnVal;
}

void CKELPThread::Close() {
    os::ThreadHandle* h = Th(m_hThread.load());
    if (!h) return;
    os::WaitThread(h, os::kInfinite);
    os::CloseThread(h);
    m_hThread.store(nullptr);
}

uint32_t CKELPThread::GetRequest() {
    m_EventRequest.Wait(KX_INFINITE);
    return m_dwRequestParam;
}

bool CKELPThread::CheckRequest(uint32_t* param) {
    if (!m_EventRequest.Check()) return false;
    if (param) *param = m_dwRequestParam;
    return true;
}

void CKELPThread::Reply(uint32_t value) {
    m_dwReturnVal = value;
    m_EventRequest.Reset();
    m_EventReply.Set();
}

} // namespace kelp
