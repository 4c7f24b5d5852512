#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "KvString.h"

namespace {

/// A text, a pattern, and whether the text contains it without and with collapsed white space.
struct Match {
    const char* name;
    std::string text;
    std::string pattern;
    bool plain;
    bool collapsed;
};

const std::vector<Match> kPattern{Match{"StarMatchesAnything", "abc", "*", true, true},
                                  Match{"StarMatchesNothing", "", "*", true, true},
                                  Match{"TwoStars", "abc", "**", true, true},
                                  Match{"StarAndWhiteSpace", "abc", "* \t\n", true, true},
                                  Match{"LowerCaseText", "abc", "A*", false, true},
                                  Match{"LowerCasePattern", "ABC", "abc", true, true},
                                  Match{"LowerCaseBoth", "abc", "abc", false, true},
                                  Match{"MixedCaseText", "AbC", "a*C", true, true},
                                  Match{"Start", "ABCD", "AB", true, true},
                                  Match{"Whole", "AB", "AB", true, true},
                                  Match{"NotAtTheStart", "XAB", "AB", false, false},
                                  Match{"TextTooShort", "A", "AB", false, false},
                                  Match{"StartBeforeTheStar", "ABCD", "AB*", true, true},
                                  Match{"NotAtTheStartBeforeTheStar", "XABCD", "AB*", false, false},
                                  Match{"StarFirst", "XXABYY", "*AB", true, true},
                                  Match{"StarBoth", "XXABYY", "*AB*", true, true},
                                  Match{"StarFirstAbsent", "XXYY", "*AB", false, false},
                                  Match{"TheLastPieceNeedNotEndTheText", "AxBy", "A*B", true, true},
                                  Match{"PiecesInOrder", "ABC", "A*B*C", true, true},
                                  Match{"PiecesOutOfOrder", "ABC", "A*C*B", false, false},
                                  Match{"PiecesDoNotOverlap", "AAA", "*AA*AA", false, false},
                                  Match{"PiecesBesideEachOther", "AAAA", "*AA*AA", true, true},
                                  Match{"ThePieceOfTheStartIsUsedUp", "A", "A*A", false, false},
                                  Match{"ThePieceOfTheStartAndAnother", "AA", "A*A", true, true},
                                  Match{"TwoStarsInside", "AXB", "A**B", true, true},
                                  Match{"EmptyPattern", "ABC", "", false, false},
                                  Match{"EmptyPatternAndText", "", "", true, true},
                                  Match{"BlankPattern", "ABC", " \t", false, false},
                                  Match{"BlankPatternAndEmptyText", "", "  ", true, true},
                                  Match{"EmptyPatternAndBlankText", "  ", "", false, false},
                                  Match{"EmptyTextAndPiece", "", "A", false, false},
                                  Match{"EmptyTextAndStarPiece", "", "*A", false, false},
                                  Match{"WhiteSpaceBehindThePattern", "ABC", "ABC \t\r\n", true, true},
                                  Match{"WhiteSpaceBehindTheText", "ABC  ", "ABC", true, true},
                                  Match{"WhiteSpaceBeforeThePattern", "ABC", " ABC", false, false},
                                  Match{"RunOfBlanks", "A   B", "A B", false, true},
                                  Match{"RunThatBeginsWithABlank", "A \t\nB", "A B", false, true},
                                  Match{"RunThatBeginsWithATab", "A\t B", "A B", false, false},
                                  Match{"RunIsItsFirstCharacter", "A\t B", "A\tB", false, true},
                                  Match{"RunInThePattern", "A  B", "A  B", true, false},
                                  Match{"RunInThePatternOnly", "A B", "A  B", false, false},
                                  Match{"LeadingRun", "   B", " B", false, true},
                                  Match{"TrailingRun", "A  ", "*A *B", false, false},
                                  Match{"DigitsAndMarks", "+1-555", "+1*5", true, true},
                                  Match{"HighBytes", "\xe9t\xe9", "\xe9*\xe9", true, true},
                                  Match{"QuestionMarkIsNoWildcard", "AB", "A?", false, false}};

TEST(AcceptedPattern, IsLookedForInTheTextAsItIs) {
    for (const Match& row : kPattern) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(KvstrContainPattern(row.text.c_str(), row.pattern.c_str(), false), row.plain);
    }
}

TEST(AcceptedPattern, IsLookedForInTheCollapsedText) {
    for (const Match& row : kPattern) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(KvstrContainPattern(row.text.c_str(), row.pattern.c_str(), true), row.collapsed);
    }
}

TEST(AcceptedPattern, IsTheSameForStrings) {
    for (const Match& row : kPattern) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(KvstrContainPattern(row.text, row.pattern, false), row.plain);
        EXPECT_EQ(KvstrContainPattern(row.text, row.pattern, true), row.collapsed);
    }
}

TEST(AcceptedPatternNull, MatchesAnything) {
    EXPECT_TRUE(KvstrContainPattern("abc", nullptr, false));
    EXPECT_TRUE(KvstrContainPattern("", nullptr, true));
}

TEST(AcceptedPatternNull, LeavesTextAndPatternAlone) {
    const std::string text = "a  b";
    const std::string pattern = "a* ";
    KvstrContainPattern(text, pattern, true);
    EXPECT_EQ(text, "a  b");
    EXPECT_EQ(pattern, "a* ");
}

TEST(AcceptedPatternPieces, AreAtMost255) {
    std::string pattern;
    for (int i = 0; i < 300; ++i) {
        pattern += "A*";
    }
    EXPECT_TRUE(KvstrContainPattern(std::string(255, 'A'), pattern, false));
    EXPECT_FALSE(KvstrContainPattern(std::string(254, 'A'), pattern, false));
}

}  // namespace
