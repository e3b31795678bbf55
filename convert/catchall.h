// The guard around calls into stages and callers' allocators, which may throw anything.
// Everything is caught and turned into a status, except the unwinding of a cancelled
// thread, which must go on.
#pragma once

#include <cxxabi.h>

// Use as: try { ... } KELP_CATCH_ALL { handle; }
#define KELP_CATCH_ALL                                                                             \
    catch (abi::__forced_unwind&) {                                                                \
        throw;                                                                                     \
    }                                                                                              \
    catch (...)
