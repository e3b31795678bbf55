// The objects behind CKELPEvent handles. Named events are process-local: every event
// made with one name in this process is the same event, until the last handle to it
// is closed. The table of names is a process-wide object made at load.
#pragma once

#include "kelpos.h"

namespace kelp {

// A new event, or for a name already in use the event of that name (whose reset mode
// then stands). Null if it cannot be made.
void* OpenEvent(const wchar_t* name, bool manualReset);
// Releases one handle; false if the handle is not an open event.
bool CloseEvent(void* handle);
os::Event* EventOf(void* handle);

} // namespace kelp
