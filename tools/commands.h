// The subcommands of the kelp tool, one file each. Each takes its own argv, where
// argv[0] is the command's name, and returns the process exit code.
#pragma once

// kelp resample IN OUT --rate HZ
int CmdResample(int argc, char** argv);
