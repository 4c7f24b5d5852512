#include <fcntl.h>
#include <unistd.h>

#include "CommandLine.h"

namespace {

/// A process that was started without standard input: nothing else is to be taken for it. Reading it fails all the same.
void KeepStandardInputsPlace() {
    if (::fcntl(STDIN_FILENO, F_GETFD) < 0) {
        ::open("/dev/null", O_WRONLY);
    }
}

}  // namespace

int main(int argc, char** argv) {
    KeepStandardInputsPlace();
    return kvhost::RunCommandLine(argc, argv);
}
