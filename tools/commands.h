// The subcommands of the kelp tool, one file each. Each takes its own argv, where
// argv[0] is the command's name, and returns the process exit code.
#pragma once

// kelp demo [--out DIR]: a generated image through the conversion manager.
int CmdDemo(int argc, char** argv);
// kelp resample IN OUT --rate HZ
int CmdResample(int argc, char** argv);
int CmdConfig(int argc, char** argv); // kelp config get|set|list|delete
int CmdCodecs(int argc, char** argv);         // kelp codecs
int CmdCodecRoundtrip(int argc, char** argv); // kelp codec-roundtrip IN.png --codec F OUT.png
// kelp info FILE: what the library sees in an image file
int CmdInfo(int argc, char** argv);
// kelp convert IN OUT [--depth 24|32] [--alpha straight|opaque|premultiplied] [--size WxH]
// [--quality Q]
int CmdConvert(int argc, char** argv);
