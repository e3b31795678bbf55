// The compositor's part of the tool: the names people know the twenty blend modes by
// (the library keeps only the numbers), and the demo picture of all twenty.
#pragma once

#include <string>

namespace composetool {

struct ModeName {
    const char* name;
    const char* what; // one line for `kelp compose --list`
};

// Index 0 is mode 1.
constexpr ModeName kModeNames[20] = {
    {"over", "the foreground over the background"},
    {"add", "the sum of both, held to white"},
    {"subtract", "the background less the foreground"},
    {"multiply", "the product: darkens"},
    {"screen", "the inverse product of the inverses: lightens"},
    {"overlay", "multiply in the foreground's shadows, screen in its highlights"},
    {"soft light", "multiply in the background's shadows, screen in its highlights"},
    {"colour dodge", "the background brightened by the foreground"},
    {"darken", "the darker of the two"},
    {"lighten", "the lighter of the two"},
    {"difference", "the difference of the two"},
    {"exclusion", "the difference, softer in the middle tones"},
    {"saturation", "saturation and lightness of the foreground, hue of the background"},
    {"hue", "hue and lightness of the foreground, saturation of the background"},
    {"luminosity", "lightness of the foreground, hue and saturation of the background"},
    {"colour", "hue and saturation of the foreground, lightness of the background"},
    {"stencil alpha", "the foreground where the background is opaque"},
    {"stencil luma", "the foreground where the background is light"},
    {"silhouette alpha", "the foreground where the background is transparent"},
    {"silhouette luma", "the foreground where the background is dark"},
};

// Writes OUT/compose.png: one tile for each mode, modes 1 to 5 on the first row. False,
// with a line on standard output, if a step failed.
bool DemoCompose(const std::string& outDir);

} // namespace composetool
