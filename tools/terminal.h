// Whether the tool talks to a person: both standard output and standard error are
// terminals. Progress is drawn only then, never into a pipe or a file.
#pragma once

namespace kelptool {

bool OnTerminal();

} // namespace kelptool
