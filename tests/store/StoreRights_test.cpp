#include "StoreRights.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>

#include "StoreDatabase.h"
#include "TempDir.h"

namespace kvhost {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using Access = StoreDatabase::Access;

constexpr uid_t kNobody = 65534;

std::string WhyNotOpened(const std::string& folder, Access access) {
    try {
        const StoreDatabase store(folder, access);
        return "";
    } catch (const StoreError& error) {
        return error.what();
    }
}

/// What the function answers to a user who is not root. Root may write everywhere.
std::string AsAnybody(const std::function<std::string()>& function) {
    int ends[2];
    if (::pipe(ends) != 0) {
        return "no pipe";
    }
    const pid_t child = ::fork();
    if (child == 0) {
        const bool isReady = ::geteuid() != 0 || ::setresuid(kNobody, kNobody, kNobody) == 0;
        const std::string text = isReady ? function() : "root stays root";
        ::_exit(::write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 1);
    }
    ::close(ends[1]);
    std::string text(4096, '\0');
    const ssize_t size = ::read(ends[0], text.data(), text.size());
    ::close(ends[0]);
    ::waitpid(child, nullptr, 0);
    return text.substr(0, size > 0 ? static_cast<std::size_t>(size) : 0);
}

class StoreRightsTest : public testing::Test {
protected:
    StoreRightsTest() {
        std::filesystem::permissions(m_dir.path(), std::filesystem::perms(0755));
        const StoreDatabase made(m_strStore, Access::Create);
    }
    ~StoreRightsTest() override {
        std::error_code error;
        std::filesystem::permissions(m_strStore, std::filesystem::perms(0700), error);
    }

    const kvtest::TempDir m_dir;
    const std::string m_strStore = m_dir.file("store");
};

TEST_F(StoreRightsTest, WhoMayNotWriteTheStoreIsToldWhoMay) {
    for (const unsigned rights : {0U, 0555U}) {
        std::filesystem::permissions(m_strStore, std::filesystem::perms(rights));
        const std::string why = AsAnybody([this] { return WhyNotOpened(m_strStore, Access::Existing); });
        EXPECT_THAT(why, AllOf(HasSubstr(m_strStore + ": this user may not write to the folder"),
                               HasSubstr("Permission denied; it belongs to "),
                               HasSubstr(": run the command as that user (runuser -u ")));
    }
}

TEST_F(StoreRightsTest, AStoreInAFolderThatMayNotBeSeenIsNotTakenForAMissingOne) {
    std::filesystem::permissions(m_strStore, std::filesystem::perms(0));
    const std::string inside = m_strStore + "/below";
    EXPECT_THAT(AsAnybody([&] { return WhyNotOpened(inside, Access::Existing); }),
                AllOf(HasSubstr(inside + ": this user may not"), HasSubstr("it belongs to ")));
}

TEST_F(StoreRightsTest, ADatabaseThatMayNotBeWrittenIsNamed) {
    std::filesystem::permissions(m_strStore, std::filesystem::perms(0777));
    std::filesystem::permissions(m_strStore + "/jobs.db", std::filesystem::perms(0444));
    EXPECT_THAT(AsAnybody([this] { return WhyNotOpened(m_strStore, Access::Existing); }),
                HasSubstr(m_strStore + "/jobs.db: this user may not write to the database"));
}

TEST_F(StoreRightsTest, RootAddsNothingToTheStoreOfAnotherUserAndMayLookAtIt) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a folder away";
    }
    ASSERT_EQ(::chown(m_strStore.c_str(), kNobody, kNobody), 0);
    EXPECT_THAT(WhyNotOpened(m_strStore, Access::Create),
                AllOf(HasSubstr(m_strStore + ": files that root puts there could not be used by the host"),
                      HasSubstr("(runuser -u nobody -- kvhost ...)")));
    EXPECT_THAT(WhyNotOpened(m_strStore + "/new/store", Access::Create),
                HasSubstr(m_strStore + ": files that root puts there"));
    EXPECT_FALSE(std::filesystem::exists(m_strStore + "/new"));
    EXPECT_EQ(WhyNotOpened(m_strStore, Access::Existing), "");
}

}  // namespace
}  // namespace kvhost
