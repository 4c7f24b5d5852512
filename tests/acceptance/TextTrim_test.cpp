#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "KvString.h"

namespace {

/// What a function leaves in a buffer that held `text`.
std::string InPlace(void (*function)(char*), const std::string& text) {
    char buffer[128] = {};
    std::memcpy(buffer, text.data(), text.size());
    function(buffer);
    return buffer;
}

const std::string kPadded = " \t\r\n\v\fa \t b\f\v\n\r\t ";

TEST(AcceptedTrim, OnTheRight) {
    EXPECT_EQ(InPlace(KvstringTrimRight, kPadded), " \t\r\n\v\fa \t b");
    EXPECT_EQ(InPlace(KvstringTrimRight, "ab"), "ab");
    EXPECT_EQ(InPlace(KvstringTrimRight, " \n "), "");
    EXPECT_EQ(InPlace(KvstringTrimRight, ""), "");
}

TEST(AcceptedTrim, OnTheLeft) {
    EXPECT_EQ(InPlace(KvstringTrimLeft, kPadded), "a \t b\f\v\n\r\t ");
    EXPECT_EQ(InPlace(KvstringTrimLeft, "ab"), "ab");
    EXPECT_EQ(InPlace(KvstringTrimLeft, " \n "), "");
    EXPECT_EQ(InPlace(KvstringTrimLeft, ""), "");
}

TEST(AcceptedTrim, AtBothEnds) {
    for (auto function : {static_cast<void (*)(char*)>(KvstringTrim), KvstringTrimSpaces}) {
        EXPECT_EQ(InPlace(function, kPadded), "a \t b");
        EXPECT_EQ(InPlace(function, "ab"), "ab");
        EXPECT_EQ(InPlace(function, " \n "), "");
        EXPECT_EQ(InPlace(function, ""), "");
        EXPECT_EQ(InPlace(function, "x"), "x");
    }
}

TEST(AcceptedTrim, OfSpacesAndTabsStopsAtOtherWhiteSpace) {
    EXPECT_EQ(InPlace(KvstringTrimSpacesAndTabs, " \tx y\t "), "x y");
    EXPECT_EQ(InPlace(KvstringTrimSpacesAndTabs, " \tx\n "), "x\n");
    EXPECT_EQ(InPlace(KvstringTrimSpacesAndTabs, "\n x \r"), "\n x \r");
    EXPECT_EQ(InPlace(KvstringTrimSpacesAndTabs, " \t "), "");
    EXPECT_EQ(InPlace(KvstringTrimSpacesAndTabs, ""), "");
}

using StringTrim = std::string (*)(std::string&, const std::string&);

/// What a function leaves in `text`; fails when its answer is anything else.
std::string InString(StringTrim function, std::string text, const std::string& chars) {
    const std::string answer = function(text, chars);
    EXPECT_EQ(answer, text);
    return text;
}

TEST(AcceptedStringTrim, RemovesTheCharactersFromTheNamedEnd) {
    EXPECT_EQ(InString(KvstringTrimRight, "-+a-b+-", "+-"), "-+a-b");
    EXPECT_EQ(InString(KvstringTrimLeft, "-+a-b+-", "+-"), "a-b+-");
    EXPECT_EQ(InString(KvstringTrim, "-+a-b+-", "+-"), "a-b");
}

TEST(AcceptedStringTrim, RemovesWhiteSpaceWhenNoCharactersAreGiven) {
    EXPECT_EQ(InString(KvstringTrimRight, kPadded, ""), " \t\r\n\v\fa \t b");
    EXPECT_EQ(InString(KvstringTrimLeft, kPadded, ""), "a \t b\f\v\n\r\t ");
    EXPECT_EQ(InString(KvstringTrim, kPadded, ""), "a \t b");
}

TEST(AcceptedStringTrim, RemovesNoWhiteSpaceWhenCharactersAreGiven) {
    EXPECT_EQ(InString(KvstringTrim, " -a- ", "-"), " -a- ");
}

TEST(AcceptedStringTrim, MayLeaveNothing) {
    for (StringTrim function :
         {static_cast<StringTrim>(KvstringTrimRight), static_cast<StringTrim>(KvstringTrimLeft),
          static_cast<StringTrim>(KvstringTrim)}) {
        EXPECT_EQ(InString(function, "xxx", "x"), "");
        EXPECT_EQ(InString(function, " \n", ""), "");
        EXPECT_EQ(InString(function, "", "x"), "");
        EXPECT_EQ(InString(function, "", ""), "");
        EXPECT_EQ(InString(function, "abc", "x"), "abc");
    }
}

// ---- paths ----

TEST(AcceptedFileName, IsTheTextBehindTheLastSlash) {
    EXPECT_STREQ(GetFileName("/var/mail/in.txt"), "in.txt");
    EXPECT_STREQ(GetFileName("a/b"), "b");
    EXPECT_STREQ(GetFileName("/a"), "a");
    EXPECT_STREQ(GetFileName("a/"), "");
    EXPECT_STREQ(GetFileName("a\\b"), "a\\b");
    EXPECT_STREQ(GetFileName(""), "");
}

TEST(AcceptedFileName, PointsIntoThePath) {
    const char* path = "dir/file";
    EXPECT_EQ(GetFileName(path), path + 4);
    const char* plain = "file";
    EXPECT_EQ(GetFileName(plain), plain);
}

std::string CreatePath(std::string dir, std::string name) {
    char out[64] = "old";
    KvstringCreatePath(out, dir.data(), name.data());
    return out;
}

TEST(AcceptedPath, JoinsWithOneSlash) {
    EXPECT_EQ(CreatePath("/var/mail", "in.txt"), "/var/mail/in.txt");
    EXPECT_EQ(CreatePath("/var/mail/", "in.txt"), "/var/mail/in.txt");
    EXPECT_EQ(CreatePath("/", "a"), "/a");
    EXPECT_EQ(CreatePath("a", "/b"), "a//b");
    EXPECT_EQ(CreatePath("a", ""), "a/");
    EXPECT_EQ(CreatePath("", "a"), "/a");
}

TEST(AcceptedPath, IsJoinedFromStringsTheSameWay) {
    EXPECT_EQ(KvstringCreatePath(std::string("/var/mail"), std::string("in.txt")), "/var/mail/in.txt");
    EXPECT_EQ(KvstringCreatePath(std::string("/var/mail/"), std::string("in.txt")), "/var/mail/in.txt");
}

TEST(AcceptedPath, NamesItsLastDirectory) {
    EXPECT_EQ(GetLastSubDirFromPath("/var/mail/in.txt"), "mail");
    EXPECT_EQ(GetLastSubDirFromPath("/var/mail/"), "mail");
    EXPECT_EQ(GetLastSubDirFromPath("mail/in.txt"), "mail");
    EXPECT_EQ(GetLastSubDirFromPath("in.txt"), "");
    EXPECT_EQ(GetLastSubDirFromPath("/in.txt"), "");
    EXPECT_EQ(GetLastSubDirFromPath(""), "");
}

TEST(AcceptedPath, ThatWasFilteredLeadsNowhereElse) {
    EXPECT_EQ(KvstringPathFilter("/a/./../b//c/"), "/a/b/c");
    EXPECT_EQ(KvstringPathFilter("a/b"), "a/b");
    for (const char* path : {"..", "../x", "/..", "x/..", "x/../../y", "./../x"}) {
        EXPECT_EQ(KvstringPathFilter(path).find(".."), std::string::npos) << path;
    }
    EXPECT_EQ(KvstringPathFilter("a..b/..c"), "a..b/..c");
}

}  // namespace
