// The filter of the variable-ratio resampler: one stored windowed-sinc low-pass of 63
// taps, read as 8 phases of 8 taps. Nothing is designed at run time, and the filter
// does not depend on the ratio.
#pragma once

// What a user of the filter reads: the table and its shape.
struct SRCcoeffRecord {
    float* table;         // the working table, owned by SRCcoeffs
    unsigned elementSize; // bytes per coefficient: 4
    float phasesAsFloat;  // 8.0
    int taps;             // 8
    int phases;           // 8
    int count;            // 72: the 63 taps scaled by the phase count, then 9 zeros
};

class SRCcoeffs {
  public:
    static constexpr int kTaps = 8;
    static constexpr int kPhases = 8;
    static constexpr int kCount = 72;

    // Fills the table; ok() tells whether its allocation succeeded.
    SRCcoeffs();
    virtual ~SRCcoeffs();
    SRCcoeffs(const SRCcoeffs&) = delete;
    SRCcoeffs& operator=(const SRCcoeffs&) = delete;

    bool ok() const { return _table != nullptr; }
    const SRCcoeffRecord* record() const { return &_record; }

  private:
    float* _table;
    SRCcoeffRecord _record;
};
