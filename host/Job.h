#pragma once

#include <string>
#include <vector>

#include "Problem.h"

namespace kvhost {

/// One line of the jobs: one message to one or more recipients through one carrier. Immutable value.
struct Job {
    std::string file;
    unsigned long line = 0;
    std::string id;
    std::string carrier;
    std::vector<std::string> recipients;
    std::string subject;
    std::string text;
    std::vector<std::string> attachments;  ///< paths, resolved

    /// Why the line is refused; empty when it can be sent. A refused job has only the fields that were
    /// readable.
    std::vector<Problem> problems;

    bool IsRefused() const { return !problems.empty(); }
};

}  // namespace kvhost
