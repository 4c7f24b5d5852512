#pragma once

#include <sys/time.h>

#include <string>
#include <vector>

// Processes: running programs, becoming a daemon, asking the system. Nothing here throws for a failure of the
// system. Thread-safe but for KvstartDaemon and closeallfiles.

/// Runs `command` in a shell and waits for it. The result of system(3).
int Kvsystem(const std::string& command);

/// Runs the program `path`, without a search in PATH, and waits for it. `args` is its whole argument list: the
/// first one is the name by which the program knows itself. Its exit status, 0 to 255.
///
/// Compatibility: 0 as well when no process could be made or `path` cannot be run; the process id of the
/// program when a signal ended it; -1 when waiting failed, which a signal handler of the caller can cause.
/// Relied on by: callers that take 0 for done and compare nothing else.
/// Held by: KvProcessTest.AProgramThatCannotBeRunAnswersZero,
/// KvProcessTest.AProgramEndedByASignalAnswersItsProcessId,
/// KvProcessFaultTest.AProgramForWhichThereIsNoProcessAnswersZero,
/// KvProcessTest.AProgramThatCannotBeWaitedForAnswersMinusOne.
int Kvsystem(const std::string& path, const std::vector<std::string>& args);

/// Formats a shell command of at most 1023 characters and runs it; a longer one is not run. Its result is lost.
[[gnu::format(printf, 1, 2)]] void systemEx(char* format, ...);

/// Goes on as a daemon: a process of its own session that leads no session and has no terminal. The processes
/// that the caller was before end with status 0. `changeDir` makes "/" the working directory; `closeFiles`
/// closes every descriptor and opens /dev/null as 0, 1 and 2. The umask stays. For a process with one thread:
/// the others do not come along.
///
/// False when there is no process or no session to be had, in the process that is still there then: the
/// caller itself, or the child whose parent has already ended.
bool KvstartDaemon(bool changeDir, bool closeFiles);

/// Closes the descriptors from `from` up to the limit of open descriptors (sysconf(_SC_OPEN_MAX) - 1). One that
/// was made before the limit was lowered below it stays open. Always 0.
int closeallfiles(int from);

/// Whether a process of that id exists and the caller may signal it.
///
/// Compatibility: false also for a process of another user; a process that has ended counts until its parent
/// has waited for it. Relied on by: hosts that look after processes of their own only.
/// Held by: KvProcessTest.AnEndedProcessCountsUntilItIsWaitedFor.
bool IsProcessRunning(unsigned long pid);

/// gettimeofday(2).
int GetTimeOfDay(timeval* now, struct timezone* zone);
