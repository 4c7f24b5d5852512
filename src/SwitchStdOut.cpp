#include "SwitchStdOut.h"

#include <fcntl.h>
#include <unistd.h>

#include <string>

namespace {

void Redirect(FILE* stream, const std::string& path, int& saved, fpos_t& position) {
    std::fflush(stream);
    std::fgetpos(stream, &position);
    saved = fcntl(fileno(stream), F_DUPFD_CLOEXEC, 0);
    [[maybe_unused]] const FILE* const reopened = std::freopen(path.c_str(), "a+", stream);
}

void Restore(FILE* stream, int saved, const fpos_t& position) {
    std::fflush(stream);
    dup2(saved, fileno(stream));
    close(saved);
    std::clearerr(stream);
    std::fsetpos(stream, &position);
}

}  // namespace

SwitchStdOut::SwitchStdOut(const char* capturePath)
    : path(capturePath), savedStdout(-1), stdoutPos(), savedStderr(-1), stderrPos() {
    Redirect(stdout, path, savedStdout, stdoutPos);
    Redirect(stderr, std::string(path) + "_error", savedStderr, stderrPos);
}

SwitchStdOut::~SwitchStdOut() {
    Restore(stdout, savedStdout, stdoutPos);
    Restore(stderr, savedStderr, stderrPos);
    unlink(path);
}
