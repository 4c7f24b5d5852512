#include "KvProcess.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>

#include "Descriptors.h"
#include "TempDir.h"
#include "src/ProcessDoubles.h"

namespace {

using kvtest::ContentOf;
using kvtest::Eventually;
using kvtest::FileExists;
using kvtest::StatusOfChild;
using kvtest::TempDir;
using kvtest::TextOfChild;

/// Runs a script in /bin/sh.
int RunScript(const std::string& script) {
    return Kvsystem("/bin/sh", {"sh", "-c", script});
}

class KvProcessTest : public ::testing::Test {
protected:
    TempDir dir;
    const std::string output = dir.file("output");
};

// --- programs ---

TEST_F(KvProcessTest, AShellCommandAnswersTheResultOfTheSystem) {
    EXPECT_EQ(Kvsystem("echo done > " + output), 0);
    EXPECT_EQ(ContentOf(output), "done\n");
    const int result = Kvsystem("exit 3");
    EXPECT_TRUE(WIFEXITED(result));
    EXPECT_EQ(WEXITSTATUS(result), 3);
}

TEST_F(KvProcessTest, AProgramAnswersItsExitStatus) {
    EXPECT_EQ(RunScript("exit 0"), 0);
    EXPECT_EQ(RunScript("exit 3"), 3);
    EXPECT_EQ(RunScript("exit 255"), 255);
}

TEST_F(KvProcessTest, TheFirstArgumentIsTheNameOfTheProgram) {
    EXPECT_EQ(
        Kvsystem("/bin/sh", {"a name", "-c", "tr '\\0' '|' < /proc/$$/cmdline > \"$1\"", "zero", output}), 0);
    EXPECT_EQ(ContentOf(output).substr(0, 10), "a name|-c|");
}

TEST_F(KvProcessTest, ArgumentsReachTheProgramAsTheyAre) {
    const std::string script = "for text in \"$@\"; do printf '[%s]' \"$text\"; done > \"$0\"";
    EXPECT_EQ(Kvsystem("/bin/sh", {"sh", "-c", script, output, "", "two words", "$HOME *"}), 0);
    EXPECT_EQ(ContentOf(output), "[][two words][$HOME *]");
}

TEST_F(KvProcessTest, AProgramEndedByASignalAnswersItsProcessId) {
    const int result = RunScript("echo $$ > " + output + "; kill -KILL $$");
    EXPECT_EQ(std::to_string(result) + "\n", ContentOf(output));
}

TEST_F(KvProcessTest, AProgramThatCannotBeRunAnswersZero) {
    EXPECT_EQ(Kvsystem(dir.file("missing"), {"missing"}), 0);
}

TEST_F(KvProcessTest, AProgramIsNotLookedForInThePath) {
    EXPECT_EQ(Kvsystem("sh", {"sh", "-c", "echo run > " + output}), 0);
    EXPECT_FALSE(FileExists(output));
}

TEST_F(KvProcessTest, AProgramThatCannotBeWaitedForAnswersMinusOne) {
    EXPECT_EQ(StatusOfChild([] {
                  signal(SIGCHLD, SIG_IGN);  // the system forgets children that end
                  return RunScript("exit 3") == -1 && errno == ECHILD ? 0 : 1;
              }),
              0);
}

TEST_F(KvProcessTest, AFormattedCommandIsRun) {
    char format[] = "echo %s %d > %s";
    systemEx(format, "number", 7, output.c_str());
    EXPECT_EQ(ContentOf(output), "number 7\n");
}

TEST_F(KvProcessTest, AFormattedCommandOf1023CharactersIsRun) {
    std::string command = "echo run > " + output + " #";
    command.resize(1023, 'x');
    char format[] = "%s";
    systemEx(format, command.c_str());
    EXPECT_EQ(ContentOf(output), "run\n");
}

TEST_F(KvProcessTest, ALongerFormattedCommandIsNotRun) {
    std::string command = "echo run > " + output + " #";
    command.resize(1024, 'x');
    char format[] = "%s";
    systemEx(format, command.c_str());
    EXPECT_FALSE(FileExists(output));
}

// --- daemons ---

/// Becomes a daemon in a child and runs `body` there; hands back the text that it answers.
class KvstartDaemonTest : public KvProcessTest {
protected:
    std::string TextOfDaemon(bool changeDir, bool closeFiles, const std::function<std::string()>& body) {
        const int starterEnd = StatusOfChild([&] {
            if (!KvstartDaemon(changeDir, closeFiles)) {
                return 1;
            }
            alarm(60);
            const std::string text = body();
            std::ofstream(dir.file("unfinished")) << text;
            std::rename(dir.file("unfinished").c_str(), output.c_str());
            return 2;  // nobody sees it: the starter has ended with another status
        });
        EXPECT_EQ(starterEnd, 0);
        EXPECT_TRUE(Eventually([&] { return FileExists(output); }));
        return ContentOf(output);
    }
};

std::string Link(const std::string& name) {
    std::error_code error;
    return std::filesystem::read_symlink(name, error).string();
}

TEST_F(KvstartDaemonTest, ItBelongsToANewSessionThatItDoesNotLead) {
    const pid_t testSession = getsid(0);
    EXPECT_EQ(TextOfDaemon(false, false,
                           [&] {
                               const bool newSession = getsid(0) != testSession;
                               const bool leads = getsid(0) == getpid();
                               return std::string(newSession ? "new" : "old") + (leads ? " leader" : "");
                           }),
              "new");
}

TEST_F(KvstartDaemonTest, WithoutAWishTheDirectoryAndTheDescriptorsStay) {
    const std::string here = std::filesystem::current_path();
    const std::string standardInput = Link("/proc/self/fd/0");
    EXPECT_EQ(TextOfDaemon(false, false,
                           [&] {
                               const bool kept = std::filesystem::current_path() == here;
                               const bool open = Link("/proc/self/fd/0") == standardInput;
                               return std::string(kept ? "kept" : "changed") + (open ? " open" : " closed");
                           }),
              "kept open");
}

TEST_F(KvstartDaemonTest, TheUmaskStays) {
    const mode_t before = umask(0123);
    const std::string seen = TextOfDaemon(true, true, [] { return std::to_string(umask(0)); });
    umask(before);
    EXPECT_EQ(seen, std::to_string(0123));
}

TEST_F(KvstartDaemonTest, TheRootDirectoryIsItsOwnWhenWished) {
    const std::string standardInput = Link("/proc/self/fd/0");
    EXPECT_EQ(TextOfDaemon(true, false,
                           [&] {
                               const bool open = Link("/proc/self/fd/0") == standardInput;
                               return std::filesystem::current_path().string() + (open ? " open" : " closed");
                           }),
              "/ open");
}

TEST_F(KvstartDaemonTest, EveryDescriptorIsClosedAndTheStreamsAreTheNullDeviceWhenWished) {
    const std::string here = std::filesystem::current_path();
    const int inherited = dup(0);
    const std::string seen = TextOfDaemon(false, true, [&] {
        const int next = dup(0);
        const bool kept = std::filesystem::current_path() == here;
        return Link("/proc/self/fd/0") + " " + Link("/proc/self/fd/1") + " " + Link("/proc/self/fd/2") + " " +
               std::to_string(next) + (kept ? " kept" : " changed");
    });
    close(inherited);
    EXPECT_EQ(seen, "/dev/null /dev/null /dev/null 3 kept");
}

TEST_F(KvstartDaemonTest, TheNullDeviceCanBeReadAndWritten) {
    EXPECT_EQ(TextOfDaemon(false, true,
                           [] {
                               char byte = 0;
                               const bool atEnd = read(0, &byte, 1) == 0;
                               const bool written = write(1, "x", 1) == 1 && write(2, "x", 1) == 1;
                               return std::string(atEnd ? "end" : "") + (written ? " written" : "");
                           }),
              "end written");
}

// --- closing descriptors ---

/// Lowers the limit of descriptors.
void LimitDescriptors(rlim_t count) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = count;
    setrlimit(RLIMIT_NOFILE, &limit);
}

bool IsOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

TEST_F(KvProcessTest, DescriptorsFromTheGivenOneAreClosedAndThoseBelowStay) {
    EXPECT_EQ(TextOfChild([] {
                  const int lower = fcntl(0, F_DUPFD, 100);
                  const int given = fcntl(0, F_DUPFD, lower + 1);
                  const int higher = fcntl(0, F_DUPFD, given + 20);
                  closeallfiles(given);
                  return std::string(IsOpen(0) && IsOpen(lower) ? "kept" : "lost") +
                         (IsOpen(given) || IsOpen(higher) ? " open" : " closed");
              }),
              "kept closed");
}

TEST_F(KvProcessTest, ADescriptorAtTheLimitStaysOpen) {
    EXPECT_EQ(TextOfChild([] {
                  const int last = fcntl(0, F_DUPFD, 199);
                  const int beyond = fcntl(0, F_DUPFD, 200);
                  LimitDescriptors(200);
                  const int result = closeallfiles(100);
                  return std::to_string(last) + (IsOpen(last) ? " open " : " closed ") +
                         std::to_string(beyond) + (IsOpen(beyond) ? " open " : " closed ") +
                         std::to_string(result);
              }),
              "199 closed 200 open 0");
}

TEST_F(KvProcessTest, ClosingFromBeyondTheLimitClosesNothing) {
    EXPECT_EQ(TextOfChild([] {
                  const int descriptor = fcntl(0, F_DUPFD, 200);
                  LimitDescriptors(150);
                  closeallfiles(180);
                  return std::string(IsOpen(descriptor) ? "open" : "closed");
              }),
              "open");
}

TEST_F(KvProcessTest, ClosingFromANegativeNumberClosesFromZero) {
    EXPECT_EQ(StatusOfChild([] {
                  closeallfiles(-5);
                  return IsOpen(0) || IsOpen(1) || IsOpen(2) ? 1 : 0;
              }),
              0);
}

// --- questions ---

TEST_F(KvProcessTest, ThisProcessIsRunning) {
    EXPECT_TRUE(IsProcessRunning(static_cast<unsigned long>(getpid())));
}

TEST_F(KvProcessTest, AnEndedProcessCountsUntilItIsWaitedFor) {
    const pid_t child = kvtest::StartChild([] { return 0; });
    siginfo_t end{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &end, WEXITED | WNOWAIT), 0);
    EXPECT_TRUE(IsProcessRunning(static_cast<unsigned long>(child)));
    ASSERT_EQ(kvtest::EndOf(child), 0);
    EXPECT_FALSE(IsProcessRunning(static_cast<unsigned long>(child)));
}

TEST_F(KvProcessTest, AProcessOfAnotherUserDoesNotCount) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can be another user";
    }
    EXPECT_EQ(StatusOfChild([] {
                  if (setresuid(65534, 65534, 65534) != 0) {
                      return 2;
                  }
                  return IsProcessRunning(static_cast<unsigned long>(getppid())) ? 1 : 0;
              }),
              0);
}

TEST_F(KvProcessTest, TheTimeOfDayIsThatOfTheSystem) {
    timeval before{};
    gettimeofday(&before, nullptr);
    timeval now{};
    EXPECT_EQ(GetTimeOfDay(&now, nullptr), 0);
    timeval after{};
    gettimeofday(&after, nullptr);
    EXPECT_FALSE(timercmp(&now, &before, <));
    EXPECT_FALSE(timercmp(&now, &after, >));
}

TEST_F(KvProcessTest, TheTimeZoneIsHandedOn) {
    struct timezone zone {};
    zone.tz_minuteswest = 12345;
    timeval now{};
    EXPECT_EQ(GetTimeOfDay(&now, &zone), 0);
    EXPECT_NE(zone.tz_minuteswest, 12345);
}

}  // namespace
