#include "StoreDatabase.h"

#include <SQLiteCpp/Statement.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <thread>

#include "StoreFixture.h"
#include "StoreSchema.h"

namespace kvhost {
namespace {

using testing::HasSubstr;

std::string WhyNotOpened(const std::string& folder, StoreDatabase::Access access) {
    try {
        const StoreDatabase store(folder, access);
        return "";
    } catch (const StoreError& error) {
        return error.what();
    }
}

TEST(StoreDatabaseTest, ANewStoreIsMadeWithItsFolderForTheHostsUserAlone) {
    const kvtest::TempDir dir;
    const StoreDatabase store(dir.file("a/b"), StoreDatabase::Access::Create);
    struct stat status {};
    ASSERT_EQ(::stat(dir.file("a/b").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0027, 0U);
}

TEST(StoreDatabaseTest, EveryCommitIsOnDiskBeforeItReturns) {
    const kvtest::TempDir dir;
    StoreDatabase store(dir.path(), StoreDatabase::Access::Create);
    constexpr int kFull = 2;
    EXPECT_EQ(store.Connection().execAndGet("PRAGMA journal_mode").getString(), "wal");
    EXPECT_EQ(store.Connection().execAndGet("PRAGMA synchronous").getInt(), kFull);
    EXPECT_EQ(store.Connection().execAndGet("PRAGMA foreign_keys").getInt(), 1);
    EXPECT_EQ(store.Connection().execAndGet("PRAGMA user_version").getInt(), kStoreSchemaVersion);
}

TEST(StoreDatabaseTest, AMissingStoreIsNotMadeByALook) {
    const kvtest::TempDir dir;
    EXPECT_THAT(WhyNotOpened(dir.path(), StoreDatabase::Access::Existing), HasSubstr("there is no store"));
    EXPECT_NE(::access(dir.file("jobs.db").c_str(), F_OK), 0);
}

TEST(StoreDatabaseTest, AStoreOfANewerVersionIsRefusedAndLeftAlone) {
    const kvtest::TempDir dir;
    StoreDatabase(dir.path(), StoreDatabase::Access::Create).Connection().exec("PRAGMA user_version = 99");
    EXPECT_THAT(WhyNotOpened(dir.path(), StoreDatabase::Access::Create),
                HasSubstr("a store of version 99, and this kvhost knows up to 1"));
}

TEST(StoreDatabaseTest, ADatabaseOfAnotherProgramIsRefused) {
    const kvtest::TempDir dir;
    SQLite::Database(dir.file("jobs.db"), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE)
        .exec("CREATE TABLE t(x)");
    EXPECT_THAT(WhyNotOpened(dir.path(), StoreDatabase::Access::Create),
                HasSubstr("a database of another program"));
}

TEST(StoreDatabaseTest, AFileThatIsNoDatabaseIsRefusedByName) {
    const kvtest::TempDir dir;
    dir.write("jobs.db", std::string(4096, 'x'));
    EXPECT_THAT(WhyNotOpened(dir.path(), StoreDatabase::Access::Create), HasSubstr(dir.file("jobs.db")));
}

TEST(StoreDatabaseTest, AFolderThatCannotBeMadeIsRefusedByName) {
    const kvtest::TempDir dir;
    const std::string file = dir.write("file", "");
    EXPECT_THAT(WhyNotOpened(file + "/store", StoreDatabase::Access::Create),
                HasSubstr(file + "/store: the store's folder cannot be made"));
}

TEST(StoreDatabaseTest, TwoThatOpenANewStoreAtOnceBothSucceed) {
    for (int round = 0; round < 20; ++round) {
        const kvtest::TempDir dir;
        std::string other = "not tried";
        std::thread second([&] { other = WhyNotOpened(dir.path(), StoreDatabase::Access::Create); });
        const std::string mine = WhyNotOpened(dir.path(), StoreDatabase::Access::Create);
        second.join();
        EXPECT_EQ(mine, "");
        EXPECT_EQ(other, "");
    }
}

class StoreReadTest : public kvhosttest::StoreTest {};

TEST_F(StoreReadTest, SeesOneMomentWhileOthersWrite) {
    Submit(Mail("a"));
    StoreDatabase reader(m_dir.path(), StoreDatabase::Access::Existing);
    const StoreRead snapshot(reader);
    JobViews views(reader);
    EXPECT_EQ(views.Count()[JobState::Queued], 1);
    Submit(Mail("b"));
    EXPECT_EQ(views.Count()[JobState::Queued], 1);
}

}  // namespace
}  // namespace kvhost
