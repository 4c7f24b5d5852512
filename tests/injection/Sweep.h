#pragma once

#include <string>
#include <vector>

#include "Scenario.h"

namespace kvinjection {

/// Runs the scenario once per rule, each in a child process of its own and several at a time. A child that crashes,
/// hangs or leaks has that as its problem. Reports are in the order of the rules.
std::vector<Report> RunEach(const std::vector<kvfault::Rule>& rules, const Extras& extras = {});

/// The same for one rule.
Report RunOnce(const kvfault::Rule& rule, const Extras& extras = {});

/// How often the scenario makes a call when nothing fails. Differs by a few from run to run where threads race.
unsigned long CallsInScenario(kvfault::Call call);

/// Which calls of a sweep over `calls` calls are tried: every one, or as many as `most` in even steps. The
/// environment variable KV_INJECTION_FULL asks for every one, KV_INJECTION_ONLY names a single one.
std::vector<unsigned long> Sample(unsigned long calls, unsigned long most);

/// The fates of a sweep in one line, for a person.
std::string Summary(const std::string& title, unsigned long calls, const std::vector<Report>& reports);

/// All problems, each with its rule's call.
std::string Problems(const std::vector<kvfault::Rule>& rules, const std::vector<Report>& reports);

}  // namespace kvinjection
