#include "KvString.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(KvStringTest, UpperCaseAndLowerCaseChangeTheLettersOnly) {
    EXPECT_EQ(KvstringUpperCase("aZ[9\xe9"), "AZ[9\xe9");
    EXPECT_EQ(KvstringLowerCase("aZ[9\xc9"), "az[9\xc9");
}

TEST(KvStringTest, NoCaseCmpOrdersTextsWithoutTheirCase) {
    EXPECT_EQ(KvstringNoCaseCmp("Mail", "mAIL"), 0);
    EXPECT_LT(KvstringNoCaseCmp("Mail", "mails"), 0);
    EXPECT_LT(KvstringNoCaseCmp("a", "B"), 0);
    EXPECT_GT(KvstringNoCaseCmp("B", "a"), 0);
}

TEST(KvStringTest, NoCaseNCmpComparesTheFirstCharacters) {
    EXPECT_EQ(KvstringNoCaseNCmp("Mail1", "MAIL2", 4), 0);
    EXPECT_LT(KvstringNoCaseNCmp("Mail1", "MAIL2", 5), 0);
    EXPECT_EQ(KvstringNoCaseNCmp("a", "b", 0), 0);
    EXPECT_EQ(KvstringNoCaseNCmp("Mail", "mail", 100), 0);
}

TEST(KvStringTest, ReverseNoCaseNCmpComparesTheLastCharacters) {
    EXPECT_EQ(KvstringReverseNoCaseNCmp("a.TXT", "longer.txt", 4), 0);
    EXPECT_LT(KvstringReverseNoCaseNCmp("a.txt", "b.txt", 5), 0);
    EXPECT_NE(KvstringReverseNoCaseNCmp("txt", "a.txt", 4), 0);
    EXPECT_EQ(KvstringReverseNoCaseNCmp("", "", 4), 0);
}

TEST(KvStringTest, ReverseNoCaseNCmpStartsAtTheEnd) {
    EXPECT_LT(KvstringReverseNoCaseNCmp("za", "ab", 2), 0);
}

TEST(KvStringTest, FindNoCaseSubstringPointsToTheLeftmostOccurrence) {
    const char* text = "an e-Mail, mail";
    EXPECT_EQ(KvstringFindNoCaseSubstring(text, "mAIL"), text + 5);
    EXPECT_EQ(KvstringFindNoCaseSubstring("aab", "AB"), std::string("ab"));
    EXPECT_EQ(KvstringFindNoCaseSubstring(text, "mails"), nullptr);
    EXPECT_EQ(KvstringFindNoCaseSubstring("", "a"), nullptr);
}

TEST(KvStringTest, FindNoCaseSubstringFindsAnEmptyTextAtTheStart) {
    const char* text = "a";
    EXPECT_EQ(KvstringFindNoCaseSubstring(text, ""), text);
}

TEST(KvStringTest, FindNoCaseSubstringQuickTakesAnUpperCaseTextToFind) {
    const char* text = "an e-Mail";
    EXPECT_EQ(KvstringFindNoCaseSubstringQuick(text, "MAIL"), text + 5);
    EXPECT_EQ(KvstringFindNoCaseSubstringQuick(text, "Mail"), nullptr);
}

}  // namespace
