// Runs a whole signal through a time stretcher as a host would: blocks are written
// while the stretcher asks for more, output is read while it says more is there, and
// flush works off the end. The rings are looked at only to count how many frames of
// each block read at the end are real output.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "audio/phasevocoder.h"
#include "audio/timewarpimp.h"
#include "audio/wsola.h"

namespace stretchtest {

using Signal = std::vector<std::vector<float>>; // one vector per channel

inline std::unique_ptr<MATtimewarpImp> Make(unsigned blockSize, unsigned channels, int method,
                                            int quality, float stretch) {
    MATtimewarp* tw = MATtimewarp::Create(blockSize, channels, method);
    if (!tw) return nullptr;
    tw->setQuality(quality);
    tw->setStretch(stretch);
    return std::unique_ptr<MATtimewarpImp>(static_cast<MATtimewarpImp*>(tw));
}

// All real output of `in` (silence pads the last block).
inline Signal Stretch(MATtimewarpImp* tw, unsigned blockSize, const Signal& in) {
    const size_t channels = in.size();
    const size_t n = in[0].size();
    Signal out(channels);
    Signal inBlock(channels, std::vector<float>(blockSize));
    Signal outBlock(channels, std::vector<float>(blockSize));
    std::vector<float*> inPtr(channels), outPtr(channels);
    for (size_t c = 0; c < channels; ++c) {
        inPtr[c] = inBlock[c].data();
        outPtr[c] = outBlock[c].data();
    }
    auto take = [&](size_t frames) {
        for (size_t c = 0; c < channels; ++c)
            out[c].insert(out[c].end(), outBlock[c].begin(), outBlock[c].begin() + frames);
    };
    for (size_t pos = 0; pos < n; pos += blockSize) {
        for (size_t c = 0; c < channels; ++c)
            for (size_t i = 0; i < blockSize; ++i)
                inBlock[c][i] = pos + i < n ? in[c][pos + i] : 0.0f;
        if (!tw->write(inPtr.data())) {
            // A full input ring means that processing waits for room: output is there.
            bool more;
            do {
                more = tw->read(outPtr.data());
                take(blockSize);
            } while (more);
        }
    }
    const SigmaBuffer& ring = *tw->outputRing();
    for (int calls = 0;; ++calls) {
        // The rings hold far less than 64 k frames.
        if (calls > 100 + (1 << 16) / int(blockSize)) {
            ADD_FAILURE() << "flush does not end";
            break;
        }
        const int readAt = ring.readIndex();
        const unsigned left = tw->flush(outPtr.data());
        int real = ring.writeIndex() - readAt;
        if (real < 0) real += ring.size();
        take(std::min<size_t>(size_t(real), blockSize));
        if (left == 0 || size_t(real) <= blockSize) break;
    }
    return out;
}

} // namespace stretchtest
