#include "TempDir.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>

using kvtest::TempDir;

TEST(TempDirTest, TheFolderIsThereAndPrivate) {
    const TempDir dir;
    const auto status = std::filesystem::status(dir.path());
    EXPECT_TRUE(std::filesystem::is_directory(status));
    EXPECT_EQ(status.permissions(), std::filesystem::perms::owner_all);
}

TEST(TempDirTest, TwoFoldersDiffer) {
    const TempDir one;
    const TempDir other;
    EXPECT_NE(one.path(), other.path());
}

TEST(TempDirTest, AFileHoldsWhatWasWritten) {
    const TempDir dir;
    const std::string path = dir.write("note.bin", std::string("a\0\r\nb", 5));
    EXPECT_EQ(path, dir.file("note.bin"));
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    EXPECT_EQ(content.str(), std::string("a\0\r\nb", 5));
}

TEST(TempDirTest, AFileThatCannotBeWrittenThrows) {
    const TempDir dir;
    EXPECT_THROW(dir.write("missing/note.txt", "a"), std::runtime_error);
}

TEST(TempDirTest, TheFolderGoesWithAllThatIsInIt) {
    std::string path;
    {
        const TempDir dir;
        path = dir.path();
        std::filesystem::create_directory(dir.file("inner"));
        dir.write("inner/note.txt", "a");
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(TempDirTest, AForkedChildLeavesTheFolderToItsParent) {
    std::optional<TempDir> dir(std::in_place);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        dir.reset();
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(std::filesystem::exists(dir->path()));
}
