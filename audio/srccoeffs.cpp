#include "srccoeffs.h"

#include <new>

namespace {

// Taps 0 to 31 of the prototype: a windowed sinc whose first zeros lie 8 table steps
// (one source frame) from the centre tap 31, so the cut-off is an eighth of the table
// rate. Taps 32 to 62 mirror them. These values are the filter, not an approximation
// of one: they are kept exactly as given.
constexpr double kPrototypeHalf[32] = {
    -0.0001452791766, -0.0003984198556, -0.0007284768508, -0.001059931586,
    -0.001277978183,  -0.001247652574,  -0.0008456675569, 0,
    0.001271117013,   0.002831170801,   0.004418533761,   0.005668321159,
    0.006165348925,   0.005523896776,   0.003482970176,   0,
    -0.004677094519,  -0.009978706017,  -0.01503737364,   -0.01877207868,
    -0.02002728544,   -0.0177496504,    -0.01117589697,   0,
    0.01551180892,    0.03448356688,    0.05548338965,    0.07666741312,
    0.0959970504,     0.1114991009,     0.1215295866,     0.125};

constexpr int kCentre = 31;
constexpr int kPrototypeTaps = 63;

} // namespace

SRCcoeffs::SRCcoeffs() : _table(new (std::nothrow) float[kCount]) {
    if (_table) {
        // Each tap in single precision times the phase count (a power of two, so the
        // order of the two steps does not matter); the nine zeros at the end let the
        // highest phase read past the prototype.
        for (int i = 0; i < kCount; ++i) {
            if (i < kPrototypeTaps) {
                int k = i <= kCentre ? i : 2 * kCentre - i;
                _table[i] = float(kPrototypeHalf[k]) * 8.0f;
            } else {
                _table[i] = 0.0f;
            }
        }
    }
    _record.table = _table;
    _record.elementSize = sizeof(float);
    _record.phasesAsFloat = float(kPhases);
    _record.taps = kTaps;
    _record.phases = kPhases;
    _record.count = kCount;
}

SRCcoeffs::~SRCcoeffs() {
    delete[] _table;
}
