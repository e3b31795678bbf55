// The geometry options of `kelp convert`: the picture's size, how it is fitted, its
// pixel ratio, a crop and the field mode, done by the conversion manager after loading.
#pragma once

#include <CLI/CLI.hpp>
#include <kelp/kelp.h>

#include <string>

namespace convertgeometry {

struct Options {
    std::string size, fit, ratio, crop;
    bool keepAspect = false, fitWidth = false, fitHeight = false, cover = false;
    bool progressive = false, swapFields = false;
};

// Declares --size --fit --keep-aspect --fit-width --fit-height --cover --ratio --crop
// --progressive --swap-fields on `cmd`.
void AddOptions(CLI::App* cmd, Options* options);

// Whether any of them was given.
bool Wanted(const Options& options);

// The output record and the flag word that the options ask of the picture `in`: its
// format at 24 or 32 bits with the size, ratio, rectangle and scan asked for. False with
// the reason when the options do not fit the picture.
bool BuildOutput(const Options& options, const KXBMINFOHEADER* in, KXBMINFOHEADERYUV* out,
                 uint32_t* flags, std::string* why);

// Converts the picture through the manager into what BuildOutput gives; the new pixels
// replace the old ones (freed through `allocator`), the record the old record.
bool Apply(const Options& options, KXBMINFOHEADERYUV* desc, void** pixels,
           kelp::IAllocator* allocator, std::string* why);

} // namespace convertgeometry
