#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AcceptedTextKit.h"
#include "KvString.h"

namespace {

using acceptedtext::Bytes;
using List = std::vector<std::string>;

// ---- replacement ----

std::string Replaced(std::string text, const std::string& what, const std::string& with) {
    findandreplace(text, what, with);
    return text;
}

TEST(AcceptedFindAndReplace, ReplacesEveryOccurrence) {
    EXPECT_EQ(Replaced("a-b-c", "-", "+"), "a+b+c");
    EXPECT_EQ(Replaced("\n.\n.", "\n.", "\n,,"), "\n,,\n,,");
    EXPECT_EQ(Replaced("xx", "x", ""), "");
    EXPECT_EQ(Replaced("aaa", "aa", "b"), "ba");
}

TEST(AcceptedFindAndReplace, LeavesATextWithoutTheOccurrence) {
    EXPECT_EQ(Replaced("abc", "x", "y"), "abc");
    EXPECT_EQ(Replaced("", "x", "y"), "");
    EXPECT_EQ(Replaced("ABC", "abc", "y"), "ABC");
}

TEST(AcceptedFindAndReplace, SearchesFromTheStartAgain) {
    EXPECT_EQ(Replaced("aabb", "ab", ""), "");
    EXPECT_EQ(Replaced("\r\r\n\n", "\r\n", ""), "");
    EXPECT_EQ(Replaced("aaaa", "aa", "a"), "a");
    EXPECT_EQ(Replaced("xaab", "ab", "b"), "xb");
}

TEST(AcceptedFindAndReplace, WorksOnTextsWithNuls) {
    EXPECT_EQ(Replaced(Bytes("a\0b-"), "-", Bytes("\0")), Bytes("a\0b\0"));
}

TEST(AcceptedReplace, OfACharacter) {
    char buffer[] = "a.b.";
    KvstringReplaceChar(buffer, '.', '-');
    EXPECT_STREQ(buffer, "a-b-");
    EXPECT_EQ(KvstringReplaceChar(std::string("a.b."), '.', '-'), "a-b-");
    EXPECT_EQ(KvstringReplaceChar(std::string(), '.', '-'), "");
}

TEST(AcceptedReplace, OfAnyOfSeveralCharacters) {
    EXPECT_EQ(KvstringReplaceCharAnyOf("a.b,c", ".,", '-'), "a-b-c");
    EXPECT_EQ(KvstringReplaceCharAnyOf("abc", "", '-'), "abc");
}

TEST(AcceptedReplace, OfATextDoesNotLookAtWhatItPutIn) {
    EXPECT_EQ(KvstringReplaceStr("aaa", "aa", "aab"), "aaba");
    EXPECT_EQ(KvstringReplaceStr("a-b-", "-", "--"), "a--b--");
    EXPECT_EQ(KvstringReplaceStr("abc", "", "x"), "abc");
}

TEST(AcceptedReplace, OfColons) {
    EXPECT_EQ(KvstringReplaceColon("12:30:", '-'), "12-30-");
}

// ---- cleaning, case, comparison ----

TEST(AcceptedCleaning, KeepsTheDigitsOnly) {
    EXPECT_EQ(KvstringCleanNumeric("+1 (555) 010"), "1555010");
    EXPECT_EQ(KvstringCleanNumeric("none"), "");
}

TEST(AcceptedCleaning, RemovesWhatIsNotPrintable) {
    char buffer[] = "a\tb\x01 c\r\n";
    KvstringCleanText(buffer);
    EXPECT_STREQ(buffer, "ab c");
    EXPECT_EQ(KvstringCleanText(std::string("a\tb\x01 c\r\n")), "ab c");
}

TEST(AcceptedCleaning, RemovesWhiteSpace) {
    EXPECT_EQ(KvstringRemoveSpaceChars(" a b\t\r\n\v\fc"), "abc");
}

TEST(AcceptedCleaning, StripsCharactersEverywhere) {
    EXPECT_EQ(KvstringStrip("-a-b-", "-"), "ab");
    EXPECT_EQ(KvstringStrip("ab", ""), "ab");
}

TEST(AcceptedCleaning, ChopsTheLastCharacter) {
    char buffer[] = "ab";
    KvstringChop(buffer);
    EXPECT_STREQ(buffer, "a");
    KvstringChop(buffer);
    KvstringChop(buffer);
    EXPECT_STREQ(buffer, "");
}

TEST(AcceptedCase, IsChangedForLettersOnly) {
    EXPECT_EQ(KvstringUpperCase("aZ1-\xe9"), "AZ1-\xe9");
    EXPECT_EQ(KvstringLowerCase("aZ1-\xe9"), "az1-\xe9");
}

TEST(AcceptedComparison, IgnoresCase) {
    EXPECT_EQ(KvstringNoCaseCmp("Mail", "mAIL"), 0);
    EXPECT_LT(KvstringNoCaseCmp("a", "B"), 0);
    EXPECT_GT(KvstringNoCaseCmp("b", "A"), 0);
    EXPECT_LT(KvstringNoCaseCmp("a", "ab"), 0);
    EXPECT_EQ(KvstringNoCaseCmp("", ""), 0);
}

TEST(AcceptedComparison, MayBeBounded) {
    EXPECT_EQ(KvstringNoCaseNCmp("Mail1", "MAIL2", 4), 0);
    EXPECT_LT(KvstringNoCaseNCmp("Mail1", "MAIL2", 5), 0);
    EXPECT_EQ(KvstringNoCaseNCmp("a", "b", 0), 0);
    EXPECT_EQ(KvstringNoCaseNCmp("ab", "AB", 10), 0);
}

TEST(AcceptedComparison, MayBeginAtTheEnd) {
    EXPECT_EQ(KvstringReverseNoCaseNCmp("a.TXT", "b.txt", 4), 0);
    EXPECT_NE(KvstringReverseNoCaseNCmp("a.TXT", "b.txt", 5), 0);
    EXPECT_EQ(KvstringReverseNoCaseNCmp("abc", "ABC", 10), 0);
    EXPECT_NE(KvstringReverseNoCaseNCmp("bc", "abc", 3), 0);
}

TEST(AcceptedSubstring, IsFoundWhateverItsCase) {
    const char* text = "e-Mail mail";
    EXPECT_EQ(KvstringFindNoCaseSubstring(text, "mAIL"), text + 2);
    EXPECT_EQ(KvstringFindNoCaseSubstring(text, "post"), nullptr);
    EXPECT_EQ(KvstringFindNoCaseSubstring(text, ""), text);
    EXPECT_EQ(KvstringFindNoCaseSubstringQuick(text, "MAIL"), text + 2);
    EXPECT_EQ(KvstringFindNoCaseSubstringQuick(text, "POST"), nullptr);
}

TEST(AcceptedCopy, FitsItsBuffer) {
    char out[8] = "-------";
    EXPECT_EQ(KvstringMsgCpy(out, "abcdef", 4), 3U);
    EXPECT_STREQ(out, "abc");
    EXPECT_EQ(out[4], '-');
    EXPECT_EQ(KvstringMsgCpy(out, "x", 8), 1U);
    EXPECT_EQ(KvstringMsgCpy(out, "abc", 0), 0U);
    EXPECT_STREQ(out, "x");
}

TEST(AcceptedCopy, MayFillItsBuffer) {
    char out[6] = "-----";
    EXPECT_EQ(KvstringMsgCpy2(out, "ab", 5), 2U);
    EXPECT_EQ(std::string(out, 6), Bytes("ab\0\0\0\0"));
    EXPECT_EQ(KvstringMsgCpy2(out, "abcdef", 3), 2U);
    EXPECT_STREQ(out, "ab");
}

TEST(AcceptedCopy, MayBeAText) {
    EXPECT_EQ(KvstringCopyMsg("abc", 2), "ab");
    EXPECT_EQ(KvstringCopyMsg("abc", 9), "abc");
    EXPECT_EQ(KvstringCopyMsg("abc", 0), "");
}

// ---- lists ----

List Tokens(const std::string& text, const std::string& delimiters) {
    List out{"old"};
    KvstringTokenize(text, delimiters, out);
    return out;
}

TEST(AcceptedTokens, AreNeverEmpty) {
    EXPECT_EQ(Tokens("a,b;c", ",;"), (List{"a", "b", "c"}));
    EXPECT_EQ(Tokens(",,a,,;b,", ",;"), (List{"a", "b"}));
    EXPECT_EQ(Tokens(",;,", ",;"), List{});
    EXPECT_EQ(Tokens("", ","), List{});
    EXPECT_EQ(Tokens("abc", ","), List{"abc"});
    EXPECT_EQ(Tokens("a,b", ""), List{"a,b"});
}

TEST(AcceptedTokens, LeaveTheTextAlone) {
    const std::string text = "a,b";
    List out;
    KvstringTokenize(text, ",", out);
    EXPECT_EQ(text, "a,b");
}

TEST(AcceptedTokens, EndAtTheFirstNul) {
    EXPECT_EQ(Tokens(Bytes("a,b\0c,d"), ","), (List{"a", "b"}));
}

TEST(AcceptedTokens, CanBeTakenOneByOne) {
    char text[] = ",a,,b,";
    char* rest = nullptr;
    EXPECT_STREQ(KvstringSafeStrTok(text, ",", &rest), "a");
    char other[] = "x y";
    char* otherRest = nullptr;
    EXPECT_STREQ(KvstringSafeStrTok(other, " ", &otherRest), "x");
    EXPECT_STREQ(KvstringSafeStrTok(nullptr, ",", &rest), "b");
    EXPECT_STREQ(KvstringSafeStrTok(nullptr, " ", &otherRest), "y");
    EXPECT_EQ(KvstringSafeStrTok(nullptr, ",", &rest), nullptr);
}

TEST(AcceptedTokens, CanBeTakenByNumber) {
    EXPECT_EQ(KvstringNStrTok("a,b,,c", ",", 0), "a");
    EXPECT_EQ(KvstringNStrTok("a,b,,c", ",", 2), "c");
    EXPECT_EQ(KvstringNStrTok("a,b,,c", ",", 3), "");
}

List Fields(const std::string& text, bool skipEmpty) {
    List out{"old"};
    KvstringSplitString(text, ',', out, skipEmpty);
    return out;
}

TEST(AcceptedFields, StandBetweenTheSeparators) {
    EXPECT_EQ(Fields("a,b", false), (List{"a", "b"}));
    EXPECT_EQ(Fields("a,,b", false), (List{"a", "", "b"}));
    EXPECT_EQ(Fields(",a", false), (List{"", "a"}));
    EXPECT_EQ(Fields(",,", false), (List{"", ""}));
    EXPECT_EQ(Fields("abc", false), List{"abc"});
}

TEST(AcceptedFields, AreSkippedWhenEmptyIfAskedFor) {
    EXPECT_EQ(Fields("a,,b", true), (List{"a", "b"}));
    EXPECT_EQ(Fields(",a,", true), List{"a"});
    EXPECT_EQ(Fields(",,", true), List{});
}

TEST(AcceptedFields, HaveNoEmptyLastOneWhateverTheFlag) {
    EXPECT_EQ(Fields("a,", false), List{"a"});
    EXPECT_EQ(Fields("a,", true), List{"a"});
    EXPECT_EQ(Fields(",", false), List{""});
    EXPECT_EQ(Fields("", false), List{});
    EXPECT_EQ(Fields("", true), List{});
}

TEST(AcceptedFields, AreJoinedAgain) {
    EXPECT_EQ(KvstringJoin({"a", "b", "c"}, ", "), "a, b, c");
    EXPECT_EQ(KvstringJoin({"a"}, ", "), "a");
    EXPECT_EQ(KvstringJoin({}, ", "), "");
}

TEST(AcceptedFind, AnswersTheLastEqualElementIgnoringCase) {
    const List list{"Mail", "post", "MAIL", "x"};
    EXPECT_EQ(KvFind(list, "mail"), 2);
    EXPECT_EQ(KvFind(list, "POST"), 1);
    EXPECT_EQ(KvFind(list, "Mail"), 2);
    EXPECT_EQ(KvFind(list, "mai"), -1);
    EXPECT_EQ(KvFind(list, "mails"), -1);
    EXPECT_EQ(KvFind(list, ""), -1);
    EXPECT_EQ(KvFind({}, "mail"), -1);
    EXPECT_EQ(KvFind({"", "x"}, ""), 0);
}

TEST(AcceptedRun, IsCountedBackwards) {
    EXPECT_EQ(CountChracterBackwards('a', "aaa", 2), 3U);
    EXPECT_EQ(CountChracterBackwards('a', "aaa", 1), 2U);
    EXPECT_EQ(CountChracterBackwards('a', "aaa", 0), 1U);
    EXPECT_EQ(CountChracterBackwards('a', "baab", 2), 2U);
    EXPECT_EQ(CountChracterBackwards('a', "aba", 2), 1U);
}

TEST(AcceptedRun, IsZeroWithoutTheCharacterOrAPosition) {
    EXPECT_EQ(CountChracterBackwards('a', "aab", 2), 0U);
    EXPECT_EQ(CountChracterBackwards('a', "aaa", static_cast<unsigned int>(std::string::npos)), 0U);
    EXPECT_EQ(CountChracterBackwards('a', "aaa", 3), 0U);
    EXPECT_EQ(CountChracterBackwards('a', "", 0), 0U);
}

TEST(AcceptedArguments, AreBuiltFromAnArray) {
    const char* texts[] = {"a", "", "b", nullptr};
    EXPECT_EQ(BuildStringVector(texts), (List{"a", "", "b"}));
}

TEST(AcceptedArguments, AreBuiltFromACommandLine) {
    EXPECT_EQ(BuildCommandLineArguments(R"(mail -s "a b")"), (List{"mail", "-s", "a b"}));
    EXPECT_EQ(BuildCommandLineArguments("  a\t b\n"), (List{"a", "b"}));
    EXPECT_EQ(BuildCommandLineArguments(R"("" "a)"), (List{"", "a"}));
    EXPECT_EQ(BuildCommandLineArguments(""), List{});
}

TEST(AcceptedArguments, AreEncodedForACommandLine) {
    EXPECT_EQ(KvstringArgumentEncode(R"(a "b")"), R"("a \"b\"")");
    for (const std::string argument : {R"(a "b" \c\)", "", " ", "\"", "\\", "\\\""}) {
        EXPECT_EQ(BuildCommandLineArguments("x " + KvstringArgumentEncode(argument) + " y"),
                  (List{"x", argument, "y"}));
    }
}

}  // namespace
