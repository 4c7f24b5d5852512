#pragma once

#include <optional>
#include <string>

#include "Options.h"

namespace kvsink {

/// What the command line of the kvsink program asks for.
struct CommandLine {
    Options options;
    std::string portFile;
    bool quiet = false;
};

/// Reads the command line. Throws StartError, which names the option that is to blame. Nothing when help was
/// asked for and printed on standard output.
std::optional<CommandLine> parseCommandLine(int argc, const char* const* argv);

}  // namespace kvsink
