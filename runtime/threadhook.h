// The thread registration hook: gives a new worker thread its name, through the
// platform's thread-naming call. A process-wide record whose lock is made at load.
#pragma once

#include "kelpos.h"

namespace kelp {

// Names the thread `t` (wide name, cut to the platform's limit). Never fails
// visibly: a thread that cannot be named runs unnamed.
void RegisterThread(os::ThreadHandle* t, const wchar_t* name);

} // namespace kelp
