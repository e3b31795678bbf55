// The commands of the kelp tool, one file each. Each function adds its subcommand to the
// tool (see cli.h); the tool lists them in --help in the order of kCommands.
// A new command is a new file with its Add function, and one line in each list below.
#pragma once

#include <CLI/CLI.hpp>

void AddVersionCommand(CLI::App& app);        // cmd_version.cpp
void AddDemoCommand(CLI::App& app);           // cmd_demo.cpp
void AddResampleCommand(CLI::App& app);       // cmd_resample.cpp
void AddConfigCommand(CLI::App& app);         // cmd_config.cpp
void AddCodecsCommand(CLI::App& app);         // cmd_codecs.cpp
void AddCodecRoundtripCommand(CLI::App& app); // cmd_codec_roundtrip.cpp
void AddInfoCommand(CLI::App& app);           // cmd_info.cpp
void AddConvertCommand(CLI::App& app);        // cmd_convert.cpp
void AddStretchCommand(CLI::App& app);        // cmd_stretch.cpp
void AddChainCommand(CLI::App& app);          // cmd_chain.cpp
void AddTransformCommand(CLI::App& app);      // cmd_transform.cpp
void AddComposeCommand(CLI::App& app);        // cmd_compose.cpp
void AddDeinterlaceCommand(CLI::App& app);    // cmd_deinterlace.cpp

inline void (*const kCommands[])(CLI::App&) = {
    AddVersionCommand,     AddDemoCommand,           AddResampleCommand,  AddConfigCommand,
    AddCodecsCommand,      AddCodecRoundtripCommand, AddInfoCommand,      AddConvertCommand,
    AddStretchCommand,     AddChainCommand,          AddTransformCommand, AddComposeCommand,
    AddDeinterlaceCommand,
};
