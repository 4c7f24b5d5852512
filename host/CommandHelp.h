#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace kvhost {

/// Puts the commands of `app` into groups for its --help. Call when all are added.
void ArrangeHelp(CLI::App& app);

/// Why the first of `arguments`, those of the command line without the program, names no command of `app`, with the
/// command that is most like it when there is one; empty when it does, or when it is an option.
std::string WhyUnknownCommand(const CLI::App& app, const std::vector<std::string>& arguments);

}  // namespace kvhost
