#include "StoreLock.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "TempDir.h"

namespace kvhost {
namespace {

using testing::HasSubstr;

std::string WhyNotLocked(const std::string& folder) {
    try {
        const StoreLock lock(folder);
        return "";
    } catch (const StoreError& error) {
        return error.what();
    }
}

TEST(StoreLockTest, ASecondHostIsRefusedAndToldWhoRuns) {
    const kvtest::TempDir dir;
    const StoreLock lock(dir.path());
    EXPECT_TRUE(StoreLock::IsTaken(dir.path()));
    EXPECT_THAT(WhyNotLocked(dir.path()),
                HasSubstr("another kvhost runs on this store (process " + std::to_string(::getpid()) + ")"));
}

TEST(StoreLockTest, WhoOnlyLooksKeepsNoHostFromStarting) {
    const kvtest::TempDir dir;
    { const StoreLock lock(dir.path()); }
    const int look = ::open((dir.path() + "/host.lock").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(::flock(look, LOCK_SH), 0);
    // A look lasts microseconds; this one lasts long enough that the host meets it.
    std::thread looker([look] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ::close(look);
    });
    EXPECT_EQ(WhyNotLocked(dir.path()), "");
    looker.join();
}

TEST(StoreLockTest, TheLockEndsWithTheObject) {
    const kvtest::TempDir dir;
    { const StoreLock lock(dir.path()); }
    EXPECT_FALSE(StoreLock::IsTaken(dir.path()));
    EXPECT_EQ(WhyNotLocked(dir.path()), "");
}

TEST(StoreLockTest, AFolderNeverLockedIsNotTaken) {
    const kvtest::TempDir dir;
    EXPECT_FALSE(StoreLock::IsTaken(dir.path()));
}

TEST(StoreLockTest, TheLockEndsWithTheProcessHoweverItEnds) {
    const kvtest::TempDir dir;
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        const StoreLock lock(dir.path());
        const char told = 'x';
        if (::write(ready[1], &told, 1) != 1) {
            ::_exit(1);
        }
        for (;;) {
            ::pause();
        }
    }
    char told = 0;
    ASSERT_EQ(::read(ready[0], &told, 1), 1);
    EXPECT_TRUE(StoreLock::IsTaken(dir.path()));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    EXPECT_FALSE(StoreLock::IsTaken(dir.path()));
    ::close(ready[0]);
    ::close(ready[1]);
}

TEST(StoreLockTest, ALinkInPlaceOfTheLockIsNotFollowed) {
    const kvtest::TempDir dir;
    const std::string victim = dir.write("victim", "precious");
    ASSERT_EQ(::symlink(victim.c_str(), dir.file("host.lock").c_str()), 0);
    EXPECT_THAT(WhyNotLocked(dir.path()), HasSubstr("the lock of the store cannot be made"));
}

}  // namespace
}  // namespace kvhost
