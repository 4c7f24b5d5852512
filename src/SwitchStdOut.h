#pragma once

#include <cstdio>

/// Sends what the process writes to its standard output to the end of a file, and its standard error to a file
/// of the same name with "_error" behind it, for the life of the object. It changes the streams of the whole
/// process: for phases with one thread only.
///
/// Compatibility: at the end the file of the standard output is deleted, the "_error" file stays.
/// Relied on by: hosts that read the output within the scope and keep the errors for later.
/// Held by: SwitchStdOutTest.OnlyTheErrorFileIsLeftAtTheEnd.
class SwitchStdOut {
public:
    /// `capturePath` stays the caller's and must live as long as the object. A file that cannot be opened
    /// leaves its stream closed, for good.
    explicit SwitchStdOut(const char* capturePath);
    ~SwitchStdOut();
    SwitchStdOut(const SwitchStdOut&) = delete;
    SwitchStdOut& operator=(const SwitchStdOut&) = delete;

protected:
    const char* path;  ///< not owned
    int savedStdout;   ///< a duplicate of the descriptor before; -1 until taken
    fpos_t stdoutPos;  ///< the position before
    int savedStderr;
    fpos_t stderrPos;
};
