// YUV pictures in the tool: the --yuv and --chroma-limit options of kelp convert, the
// conversion they ask for, and what kelp info tells of a YUV record.
//
// A YUV picture is meshed 4:4:4 (Y, U, V and, at 32 bits, alpha bytes), in one of three
// colour spaces: BT.601 and BT.709 in limited range, which the conversion manager
// converts, and BT.601 in full range, which the manager refuses by design and the
// tool converts through the colour converter itself. Only .bsi files hold YUV; a YUV
// picture read from one goes back to RGB for any other output.
#pragma once

#include <kelp/kelp.h>

#include <CLI/CLI.hpp>

#include <string>

namespace kelptool {

struct YuvOptions {
    std::string space;          // "601", "709", "full", or empty: no YUV asked for
    uint32_t chromaLimit = 100; // per cent: 100 (16..240) or 75 (44..212)
};

// Adds --yuv and --chroma-limit to the convert command.
void AddYuvOptions(CLI::App& command, YuvOptions* options);

// Empty if the options fit an output of extension `ext`, else why not.
std::string CheckYuvOptions(const YuvOptions& options, const std::string& ext);

// Brings a loaded picture to what OUT holds: into YUV as the options ask, or out of YUV
// into RGB of the same depth where OUT (extension `ext`) cannot hold YUV. `desc` must
// be a record of 160 bytes; the pixels may be replaced by a buffer of `allocator`.
// False with the reason in `why`.
bool ApplyYuv(const YuvOptions& options, const std::string& ext, KXBMINFOHEADERYUV* desc,
              void** pixels, kelp::IAllocator* allocator, std::string* why);

// ", YUV 4:4:4 BT.709" for a YUV record, empty for any other: the end of the line
// kelp convert prints.
std::string YuvSummary(const KXBMINFOHEADER* desc);

// The colour space and sampling lines of kelp info for a YUV record.
void PrintYuvInfo(const KXBMINFOHEADER* desc);

} // namespace kelptool
