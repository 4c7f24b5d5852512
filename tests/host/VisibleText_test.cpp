#include "VisibleText.h"

#include <gtest/gtest.h>

namespace kvhost {
namespace {

TEST(VisibleTextTest, PrintableAsciiStaysAsItIs) {
    EXPECT_EQ(MakeVisible("a <b> & ~"), "a <b> & ~");
}

TEST(VisibleTextTest, ControlCharactersAreWrittenOut) {
    EXPECT_EQ(MakeVisible(std::string("\0\t\n\r\x1b\x07\x7f", 7)), "<NUL><TAB><LF><CR><ESC><07><7F>");
}

TEST(VisibleTextTest, PrintableUtf8StaysAsItIs) {
    EXPECT_EQ(MakeVisible("Stra\u00dfe \u20ac \U0001F4E7"), "Stra\u00dfe \u20ac \U0001F4E7");
}

TEST(VisibleTextTest, AC1ControlCharacterIsWrittenOut) {
    EXPECT_EQ(MakeVisible("\xc2\x9b"
                          "1m"),
              "<C2><9B>1m");
}

TEST(VisibleTextTest, ALoneContinuationByteIsWrittenOut) {
    EXPECT_EQ(MakeVisible("a\x80z"), "a<80>z");
}

TEST(VisibleTextTest, ASequenceCutAtTheEndIsWrittenOut) {
    EXPECT_EQ(MakeVisible("a\xe2\x82"), "a<E2><82>");
}

TEST(VisibleTextTest, OverlongFormsSurrogatesAndValuesOutOfRangeAreWrittenOut) {
    EXPECT_EQ(MakeVisible("\xc0\xaf"), "<C0><AF>");
    EXPECT_EQ(MakeVisible("\xe0\x80\xaf"), "<E0><80><AF>");
    EXPECT_EQ(MakeVisible("\xed\xa0\x80"), "<ED><A0><80>");
    EXPECT_EQ(MakeVisible("\xf0\x80\x80\xaf"), "<F0><80><80><AF>");
    EXPECT_EQ(MakeVisible("\xf4\x90\x80\x80"), "<F4><90><80><80>");
}

TEST(VisibleTextTest, StripLineEndTakesEveryCrAndLfAtTheEnd) {
    EXPECT_EQ(StripLineEnd("no such user\r\n"), "no such user");
    EXPECT_EQ(StripLineEnd("one\r\ntwo\r\n\r\n"), "one\r\ntwo");
}

TEST(VisibleTextTest, StripLineEndOfNothingButLineEndsIsEmpty) {
    EXPECT_EQ(StripLineEnd("\r\n\n"), "");
}

TEST(VisibleTextTest, CodePointsAreCountedNotBytes) {
    EXPECT_EQ(CountCodePoints("\u00fcb\u20ac"), 3U);
}

}  // namespace
}  // namespace kvhost
