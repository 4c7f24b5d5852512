#pragma once

namespace kvhost {

/// Parses the command line, runs its command and answers the exit status. Whatever goes wrong is told on
/// standard error, one line that begins with "kvhost: " for each fault.
int RunCommandLine(int argc, const char* const* argv);

}  // namespace kvhost
