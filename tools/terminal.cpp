// The terminal test of the tool, the one place that asks the C library.
#include "terminal.h"

#include <unistd.h>

namespace kelptool {

bool OnTerminal() {
    return isatty(STDOUT_FILENO) == 1 && isatty(STDERR_FILENO) == 1;
}

} // namespace kelptool
