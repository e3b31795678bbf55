#include "progress.h"

#include <cstdio>
#include <utility>

#include "terminal.h"

namespace kelptool {

namespace {
constexpr int kWidth = 40; // characters of the bar
}

Progress::Progress(std::string label, int64_t total)
    : m_label(std::move(label)), m_total(total), m_on(total > 0 && OnTerminal()) {}

Progress::~Progress() {
    Finish();
}

void Progress::Update(int64_t done) {
    if (!m_on) return;
    if (done < 0) done = 0;
    if (done > m_total) done = m_total;
    const int percent = int(done * 100 / m_total);
    if (percent == m_last) return;
    m_last = percent;
    const int filled = percent * kWidth / 100;
    std::fprintf(stderr, "\r%s [%.*s%.*s] %3d%%", m_label.c_str(), filled,
                 "########################################", kWidth - filled,
                 "........................................", percent);
    std::fflush(stderr);
}

void Progress::Finish() {
    if (m_on && m_last >= 0) std::fputc('\n', stderr);
    m_last = -1;
    m_on = false;
}

} // namespace kelptool
