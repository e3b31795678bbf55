// The subcommands of the kelp tool, one file each. Each takes its own argv, where
// argv[0] is the command's name, and returns the process exit code.
#pragma once

// kelp demo [--out DIR]: a generated image through the conversion manager.
int CmdDemo(int argc, char** argv);
