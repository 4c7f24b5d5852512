#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "shim/FaultShim.h"

namespace kvinjection {

/// Jobs of the scenario; the server refuses one of them.
inline constexpr int kJobs = 9;

/// What one run of the scenario came to.
struct Report {
    unsigned long injected = 0;
    int completed = 0;
    int failed = 0;
    bool attachmentWasEmpty = false;
    int doubtful = 0;  ///< failed, though the server had accepted them
    int thrown = 0;    ///< exceptions that reached the host
    std::map<std::string, unsigned long> calls;
    std::vector<std::string> reasons;   ///< of failed jobs, but for the one that the server refuses
    std::vector<std::string> problems;  ///< what must not happen
};

/// The outcome as text, one field a line, and back.
std::string ToText(const Report& report);
Report FromText(const std::string& text);

/// What a test adds to the scenario.
struct Extras {
    /// Called when the driver stands, before the first job.
    std::function<void()> beforeFirstJob;
    /// Called when the first jobs are handed over, before the first tick.
    std::function<void()> beforeFirstTick;
    /// Called before the later jobs, which the fault is not to touch.
    std::function<void()> beforeLaterJobs;
    /// Path of the attachment; a regular file when empty.
    std::string attachment;
    /// The fault may make the attachment arrive as an empty part.
    bool attachmentMayBeEmpty = false;
};

/// Loads the plug-in and drives it through its life while `rule` is in force: setup; single messages with an
/// attachment, a group, a refused recipient and one inside TLS with credentials; two more over the same connections;
/// and, when the fault is over, two later ones; cleanup. Then holds what came back against the server's records.
///
/// Wants a process of its own: the plug-in stays loaded.
Report RunScenario(const kvfault::Rule& rule, const Extras& extras = {});

}  // namespace kvinjection
