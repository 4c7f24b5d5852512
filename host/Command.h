#pragma once

#include <CLI/CLI.hpp>

#include "ExitStatus.h"

namespace kvhost {

/// One command of kvhost, such as "send". One thread at a time.
class Command {
public:
    virtual ~Command() = default;

    /// Adds the command and its options to `app`, and answers it.
    virtual CLI::App* Register(CLI::App& app) = 0;
    /// Runs the command with the options that were parsed, and answers one of the exit statuses. Throws
    /// BadInput for input that nothing can be done with.
    virtual int Run() = 0;
};

}  // namespace kvhost
