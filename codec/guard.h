// The guard around every call into a codec plug-in: nothing a plug-in throws may reach
// the caller. Everything is caught, except the unwinding of a cancelled thread, which
// must go on.
#pragma once

#include <kelp/kelpdefs.h>

#include <cxxabi.h>

namespace kelp {
namespace codec {

// Runs f(); an exception becomes `fallback`.
template <class R, class F> R Guarded(R fallback, F&& f) {
    try {
        return f();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return fallback;
    }
}

// The status of a codec operation; an exception is a caught failure.
template <class F> KXRESULT GuardedStatus(F&& f) {
    return Guarded<KXRESULT>(KXE_FAIL, f);
}

} // namespace codec
} // namespace kelp
