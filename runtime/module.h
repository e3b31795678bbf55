// The library's start and end as a module. One constructor (in kelpmodule.cpp) creates
// the heap, then the process-wide objects in the order of the table there, stores the
// module identity and binds the trace sink; one teardown undoes it all in reverse and
// ends the heap last. No other file has dynamic initialisation of globals: a
// subsystem that needs a process-wide object provides a construct and a destroy
// function, declared here and listed in the table.
#pragma once

namespace kelp {
namespace module {

struct GlobalEntry {
    const char* name;
    void (*construct)();
    void (*destroy)();
};

// Process-wide objects of the subsystems, in the order of kGlobals.
// The codec registry: codec and plug-in lists, the count of managers and their lock.
void ConstructCodecRegistry();
void DestroyCodecRegistry();
void ConstructDualVirtAllocators();
void DestroyDualVirtAllocators();
// The conversion manager's registry: the list of built-in stages, the count of managers
// and the lock around both.
void ConstructConversionGlobals();
void DestroyConversionGlobals();
void ConstructHeapThreadSlot();
void DestroyHeapThreadSlot();
void ConstructBadAlloc();
void DestroyBadAlloc();
void ConstructCppAllocator();
void DestroyCppAllocator();
// The settings store and its interface are made on first use (the processor functions
// read settings at load); their entry only ends them.
void DestroySettings();
void ConstructEnhancedFunctions();
void DestroyEnhancedFunctions();
void ConstructThreadHook();
void DestroyThreadHook();
void ConstructEventNames();
void DestroyEventNames();
// The image toolkit's tables and translators are made on first use; their entry only
// ends them.
void DestroyToolkit();

} // namespace module
} // namespace kelp
