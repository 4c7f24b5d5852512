#include "KvString.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string CreatedPath(std::string dir, std::string name) {
    char out[64];
    KvstringCreatePath(out, dir.data(), name.data());
    return out;
}

TEST(KvStringTest, GetFileNameIsThePartBehindTheLastSlash) {
    EXPECT_STREQ(GetFileName("/var/log/mail.log"), "mail.log");
    EXPECT_STREQ(GetFileName("mail.log"), "mail.log");
    EXPECT_STREQ(GetFileName("/var/"), "");
}

TEST(KvStringTest, CreatePathPutsOneSlashBetweenDirectoryAndName) {
    EXPECT_EQ(CreatedPath("/var", "mail"), "/var/mail");
    EXPECT_EQ(CreatedPath("/var/", "mail"), "/var/mail");
    EXPECT_EQ(CreatedPath("", "mail"), "/mail");
}

TEST(KvStringTest, CreatePathMakesAStringToo) {
    EXPECT_EQ(KvstringCreatePath(std::string("/var"), std::string("mail")), "/var/mail");
    EXPECT_EQ(KvstringCreatePath(std::string("/var/"), std::string("mail")), "/var/mail");
    EXPECT_EQ(KvstringCreatePath(std::string(), std::string("mail")), "/mail");
}

TEST(KvStringTest, GetLastSubDirFromPathIsTheComponentBeforeTheLastSlash) {
    EXPECT_EQ(GetLastSubDirFromPath("/var/mail/in.txt"), "mail");
    EXPECT_EQ(GetLastSubDirFromPath("/var/mail/"), "mail");
    EXPECT_EQ(GetLastSubDirFromPath("mail/in.txt"), "mail");
}

TEST(KvStringTest, GetLastSubDirFromPathIsEmptyWithoutADirectory) {
    EXPECT_EQ(GetLastSubDirFromPath("in.txt"), "");
    EXPECT_EQ(GetLastSubDirFromPath("/in.txt"), "");
    EXPECT_EQ(GetLastSubDirFromPath(""), "");
}

TEST(KvStringTest, PathFilterLeadsNowhereAboveTheBeginning) {
    EXPECT_EQ(KvstringPathFilter("/a/./../b//c/"), "/a/b/c");
    EXPECT_EQ(KvstringPathFilter("../../etc/passwd"), "etc/passwd");
    EXPECT_EQ(KvstringPathFilter("..."), "...");
    EXPECT_EQ(KvstringPathFilter("/.."), "/");
    EXPECT_EQ(KvstringPathFilter(""), "");
}

}  // namespace
