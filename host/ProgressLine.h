#pragma once

#include <cstddef>
#include <ostream>
#include <string>

#include "Outcomes.h"

namespace kvhost {

/// One line on a terminal that is written over again and again. One thread at a time.
class ProgressLine {
public:
    /// A line that is not `isEnabled` shows nothing.
    ProgressLine(std::ostream& stream, bool isEnabled) : m_stream(stream), m_bEnabled(isEnabled) {}
    /// Wipes the line.
    ~ProgressLine() { Wipe(); }

    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    /// Shows how many of all outcomes are settled, and how.
    void Show(const Tally& tally);
    void Wipe();

private:
    std::ostream& m_stream;
    const bool m_bEnabled;
    bool m_bShown = false;
};

/// Such as "12 of 18 done: 11 delivered, 1 failed, 6 under way".
std::string ProgressText(const Tally& tally);

}  // namespace kvhost
