// Event objects and the process-local table of event names.
#include "eventobject.h"

#include <new>
#include <string>

#include "module.h"

namespace kelp {
namespace {

constexpr uint32_t kEventMagic = 0x544E5645; // "EVNT": tells a live event from anything else

struct EventObject {
    explicit EventObject(bool manualReset) : event(manualReset) {}
    uint32_t magic = kEventMagic;
    os::Event event;
    uint32_t refs = 1; // under the table's lock for a named event
    bool named = false;
    std::wstring name;
    EventObject* next = nullptr;
};

struct NameTable {
    os::CriticalSection lock;
    EventObject* head = nullptr;
};

alignas(NameTable) unsigned char g_namesStorage[sizeof(NameTable)];
NameTable* g_names = nullptr;

EventObject* Live(void* handle) {
    EventObject* e = static_cast<EventObject*>(handle);
    return e && e->magic == kEventMagic ? e : nullptr;
}

void Free(EventObject* e) {
    e->magic = 0;
    delete e;
}

} // namespace

void* OpenEvent(const wchar_t* name, bool manualReset) {
    NameTable* t = g_names;
    if (!name || !*name || !t) return new (std::nothrow) EventObject(manualReset);
    t->lock.Enter();
    EventObject* e = t->head;
    while (e && e->name != name)
        e = e->next;
    if (e) {
        ++e->refs;
    } else if ((e = new (std::nothrow) EventObject(manualReset)) != nullptr) {
        e->named = true;
        e->name = name;
        e->next = t->head;
        t->head = e;
    }
    t->lock.Leave();
    return e;
}

bool CloseEvent(void* handle) {
    EventObject* e = Live(handle);
    if (!e) return false;
    NameTable* t = g_names;
    if (!e->named) {
        Free(e);
        return true;
    }
    if (!t) { // the table has ended with the library: the count is all that is left
        if (--e->refs == 0) Free(e);
        return true;
    }
    t->lock.Enter();
    bool last = --e->refs == 0;
    if (last) {
        EventObject** link = &t->head;
        while (*link && *link != e)
            link = &(*link)->next;
        if (*link) *link = e->next;
    }
    t->lock.Leave();
    if (last) Free(e);
    return true;
}

os::Event* EventOf(void* handle) {
    EventObject* e = Live(handle);
    return e ? &e->event : nullptr;
}

void module::ConstructEventNames() {
    g_names = new (g_namesStorage) NameTable();
}

// Events still open keep their objects; they are freed by their last handle.
void module::DestroyEventNames() {
    NameTable* t = g_names;
    if (!t) return;
    g_names = nullptr;
    t->~NameTable();
}

} // namespace kelp
