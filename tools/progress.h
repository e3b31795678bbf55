// The progress line of a long job of the tool: "LABEL [#####.....]  42%" on standard
// error, redrawn in place when the percentage changes, and only on a terminal.
#pragma once

#include <cstdint>
#include <string>

namespace kelptool {

class Progress {
public:
    // A job of `total` units (frames, steps); nothing is drawn for a total of 0.
    Progress(std::string label, int64_t total);
    ~Progress(); // ends the line if one was drawn
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // `done` units of the total are done.
    void Update(int64_t done);
    // Ends the line, so that a message may follow on a line of its own.
    void Finish();

private:
    std::string m_label;
    int64_t m_total;
    bool m_on;
    int m_last = -1;
};

} // namespace kelptool
