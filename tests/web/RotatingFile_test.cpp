#include "RotatingFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "Problem.h"
#include "WebFixture.h"

namespace kvhosttest {
namespace {

using kvhost::RotatedFile;
using kvhost::RotatingFile;
using testing::HasSubstr;

class RotatingFileTest : public testing::Test {
protected:
    RotatedFile File(std::uint64_t bytes, int files) const { return {m_dir.file("d.log"), bytes, files}; }
    std::string Content(const std::string& name) const { return ReadFile(m_dir.file(name)); }
    bool Exists(const std::string& name) const { return std::filesystem::exists(m_dir.file(name)); }

    kvtest::TempDir m_dir;
};

TEST_F(RotatingFileTest, LinesAreAppendedToWhatIsThere) {
    m_dir.write("d.log", "before\n");
    RotatingFile file(File(1000, 3));
    EXPECT_EQ(file.Append("one"), "");
    EXPECT_EQ(file.Append("two"), "");
    EXPECT_EQ(Content("d.log"), "before\none\ntwo\n");
}

TEST_F(RotatingFileTest, ALineIsInTheFileAtOnce) {
    RotatingFile file(File(1000, 3));
    file.Append("one");
    EXPECT_EQ(Content("d.log"), "one\n");
}

TEST_F(RotatingFileTest, AFullFileIsBegunAnewAndTheOldestGoes) {
    RotatingFile file(File(8, 3));
    for (const char* line : {"111", "222", "333", "444", "555", "666", "777"}) {
        EXPECT_EQ(file.Append(line), "");
    }
    EXPECT_EQ(Content("d.log"), "777\n");
    EXPECT_EQ(Content("d.1.log"), "555\n666\n");
    EXPECT_EQ(Content("d.2.log"), "333\n444\n");
    EXPECT_FALSE(Exists("d.3.log"));
}

TEST_F(RotatingFileTest, TheSizeOfTheRunBeforeCounts) {
    m_dir.write("d.log", "1234\n");
    RotatingFile file(File(8, 2));
    file.Append("567");
    EXPECT_EQ(Content("d.1.log"), "1234\n");
    EXPECT_EQ(Content("d.log"), "567\n");
}

TEST_F(RotatingFileTest, WithOneFileTheFullOneIsDropped) {
    RotatingFile file(File(4, 1));
    file.Append("111");
    file.Append("222");
    EXPECT_EQ(Content("d.log"), "222\n");
    EXPECT_FALSE(Exists("d.1.log"));
}

TEST_F(RotatingFileTest, ALineThatIsLargerThanAFileIsWrittenWholly) {
    RotatingFile file(File(4, 2));
    EXPECT_EQ(file.Append("1"), "");
    EXPECT_EQ(file.Append("123456789"), "");
    EXPECT_EQ(Content("d.log"), "123456789\n");
}

TEST_F(RotatingFileTest, OthersMayNotReadTheFile) {
    RotatingFile file(File(100, 2));
    struct stat status {};
    ASSERT_EQ(::stat(m_dir.file("d.log").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0007U, 0U);
}

TEST_F(RotatingFileTest, AFileThatCannotBeOpenedIsBadInput) {
    try {
        RotatingFile file({m_dir.file("none/d.log"), 100, 2});
        FAIL() << "was opened";
    } catch (const kvhost::BadInput& error) {
        EXPECT_THAT(error.what(), HasSubstr("none/d.log: cannot be opened for appending: No such file"));
    }
}

TEST_F(RotatingFileTest, AFullDiskIsToldAndTriedAgain) {
    RotatingFile file({"/dev/full", 100, 2});
    EXPECT_EQ(file.Append("one"), "No space left on device");
    EXPECT_EQ(file.Append("two"), "No space left on device");
}

/// No file of this process may grow beyond so many bytes while it lives.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        m_before = ::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &m_limit);
        const rlimit small = {bytes, m_limit.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &small);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &m_limit);
        ::signal(SIGXFSZ, m_before);
    }

private:
    rlimit m_limit{};
    void (*m_before)(int) = nullptr;
};

TEST_F(RotatingFileTest, ALineThatFitsInPartLeavesNothingBehind) {
    RotatingFile file(File(1000, 2));
    file.Append("first");
    std::string why;
    {
        const FileSizeLimit limit(10);
        why = file.Append("a line that is longer than what is left");
    }
    EXPECT_EQ(why, "No space left on device");
    EXPECT_EQ(Content("d.log"), "first\n");
    EXPECT_EQ(file.Append("second"), "");
    EXPECT_EQ(Content("d.log"), "first\nsecond\n");
}

TEST_F(RotatingFileTest, AFileThatCannotBeRenamedGrowsOn) {
    std::filesystem::create_directories(m_dir.file("d.1.log/in the way"));
    RotatingFile file(File(4, 2));
    EXPECT_EQ(file.Append("111"), "");
    EXPECT_EQ(file.Append("222"), "");
    EXPECT_EQ(Content("d.log"), "111\n222\n");
}

}  // namespace
}  // namespace kvhosttest
