// kelp stretch IN OUT --ratio R [--method wsola|vocoder] [--quality 0|1|2]: makes a
// sound file longer or shorter at kept pitch.
#pragma once

#include <string>

struct StretchOptions {
    std::string in;     // any file the sound file library reads
    std::string out;    // written as WAV in the input's encoding
    double ratio = 1.0; // output length over input length
    int method = 0;     // 0 WSOLA, 1 phase vocoder
    int quality = 0;    // 0 fastest to 2 best
};

// The ratios each method serves.
constexpr double kStretchMinRatio[2] = {0.375, 0.25};
constexpr double kStretchMaxRatio[2] = {4.0, 2.0};

// Does the work of the command on options that were parsed already: 0 done, 1 failed
// (with one line "kelp stretch: ..." on standard error), 2 an option out of range. The
// input is only ever read; OUT is replaced only once it is complete.
int RunStretch(const StretchOptions& options);
