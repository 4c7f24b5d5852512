#include "KvsysCodec.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using ::testing::ExitedWithCode;

/// The text that KvhttpStrEncode leaves in a buffer of `outSize` bytes, in front of which nothing is
/// terminated.
std::string HttpStrEncode(const std::string& text, int outSize = 64) {
    std::vector<char> out(static_cast<std::size_t>(outSize) + 1, '~');
    out.back() = '\0';
    KvsysCodec::KvhttpStrEncode(out.data(), outSize, text.c_str());
    return out.data();
}

/// Ends this process, the child of a test, with `actual` on its standard error.
[[noreturn]] void ReportAndExit(const std::string& actual) {
    std::fputs(actual.c_str(), stderr);
    std::fflush(stderr);
    std::_Exit(0);
}

// URLs and names

TEST(KvsysCodecTest, EncodeUrlKeepsDigitsLettersAndUnderscoreOnly) {
    EXPECT_EQ(KvsysCodec::EncodeUrl("a b-c"), "a+b%2Dc");
    EXPECT_EQ(KvsysCodec::EncodeUrl("09AZaz_"), "09AZaz_");
    EXPECT_EQ(KvsysCodec::EncodeUrl("/:@[`{.~+"), "%2F%3A%40%5B%60%7B%2E%7E%2B");
}

TEST(KvsysCodecTest, EncodeUrlWritesHighBytesWithTheirValue) {
    EXPECT_EQ(KvsysCodec::EncodeUrl("\x80\xe9\xff"), "%80%E9%FF");
}

TEST(KvsysCodecTest, EncodeUrlOfAnEmptyTextIsEmpty) {
    EXPECT_EQ(KvsysCodec::EncodeUrl(""), "");
}

TEST(KvsysCodecTest, DecodeUrlUndoesEncodeUrl) {
    EXPECT_EQ(KvsysCodec::DecodeUrl("a+b%2Dc%e9"), "a b-c\xe9");
}

TEST(KvsysCodecTest, DecodeUrlOfATruncatedEscapeIsEmpty) {
    EXPECT_EQ(KvsysCodec::DecodeUrl("abc%4"), "");
    EXPECT_EQ(KvsysCodec::DecodeUrl("abc%"), "");
}

TEST(KvsysCodecTest, DecodeUrlOfTwoCharactersThatAreNoDigitsGivesANulByte) {
    EXPECT_EQ(KvsysCodec::DecodeUrl("a%zzb"), std::string("a\0b", 3));
    EXPECT_EQ(KvsysCodec::DecodeUrl("%4z"), "\x04");
}

TEST(KvsysCodecTest, DecodeUrlEndsAtTheFirstNulByte) {
    EXPECT_EQ(KvsysCodec::DecodeUrl(std::string("ab\0cd", 5)), "ab");
}

TEST(KvsysCodecTest, HttpStrEncodeKeepsLettersDigitsSlashUnderscoreAndPoint) {
    EXPECT_EQ(HttpStrEncode("/a_B.9 -\r"), "/a_B.9%20%2D%0D");
}

TEST(KvsysCodecTest, HttpStrEncodeGivesABareLineFeedACarriageReturn) {
    EXPECT_EQ(HttpStrEncode("\na\nb"), "%0D%0Aa%0D%0Ab");
    EXPECT_EQ(HttpStrEncode("a\r\nb"), "a%0D%0Ab");
}

TEST(KvsysCodecTest, HttpStrEncodeTurnsEveryHighByteIntoPercentFF) {
    EXPECT_EQ(HttpStrEncode("\x80\xe9\xff"), "%FF%FF%FF");
}

TEST(KvsysCodecTest, HttpStrEncodeStopsWhenFewerThanFiveBytesAreLeft) {
    EXPECT_EQ(HttpStrEncode("abcdef", 8), "abcd");
    EXPECT_EQ(HttpStrEncode("  ", 8), "%20%20");
    EXPECT_EQ(HttpStrEncode("  ", 7), "%20");
}

TEST(KvsysCodecTest, HttpStrEncodeNeverWritesBehindTheBuffer) {
    for (int outSize = 5; outSize < 12; ++outSize) {
        for (const char* text : {"\n\n\n\n", "a\nb\n", "  \n", "abcdefghijkl"}) {
            std::vector<char> out(static_cast<std::size_t>(outSize));  // a sanitizer watches its end
            KvsysCodec::KvhttpStrEncode(out.data(), outSize, text);
            EXPECT_LT(std::string(out.data()).size(), static_cast<std::size_t>(outSize));
        }
    }
}

TEST(KvsysCodecTest, HttpStrEncodeCutsABareLineFeedThatDoesNotFit) {
    EXPECT_EQ(HttpStrEncode("\n", 6), "%0D");
    EXPECT_EQ(HttpStrEncode("\n", 7), "%0D%0A");
}

TEST(KvsysCodecTest, HttpStrEncodeWritesNothingForAnEmptyTextOrATinyBuffer) {
    EXPECT_EQ(HttpStrEncode("", 8), "~~~~~~~~");
    EXPECT_EQ(HttpStrEncode("abc", 4), "~~~~");
}

TEST(KvsysCodecTest, EncodeNameEscapesEveryByteButLettersAndDigits) {
    EXPECT_EQ(KvsysCodec::EncodeName("aZ09_. /"), "aZ09%5F%2E%20%2F");
    EXPECT_EQ(KvsysCodec::EncodeName(std::string("a\0b", 3)), "a%00b");
}

TEST(KvsysCodecTest, EncodeNameTurnsEveryHighByteIntoPercentFF) {
    EXPECT_EQ(KvsysCodec::EncodeName("\xe9"), "%FF");
    EXPECT_EQ(KvsysCodec::EncodeName("\x80g\x7f"), "%FFg%7F");
}

TEST(KvsysCodecTest, DecodeNameUndoesEncodeName) {
    EXPECT_EQ(KvsysCodec::DecodeName("aZ09%5F%2E%20"), "aZ09_. ");
}

TEST(KvsysCodecTest, DecodeNameCopiesAPercentWithFewerThanTwoCharactersBehindIt) {
    EXPECT_EQ(KvsysCodec::DecodeName("a%"), "a%");
    EXPECT_EQ(KvsysCodec::DecodeName("a%4"), "a%4");
    EXPECT_EQ(KvsysCodec::DecodeName("a%41"), "aA");
}

TEST(KvsysCodecTest, DecodeNameLeavesPlusSigns) {
    EXPECT_EQ(KvsysCodec::DecodeName("a+b"), "a+b");
}

TEST(KvsysCodecTest, FileNamesAreCodedAsNames) {
    EXPECT_EQ(KvsysCodec::EncodeFileName("a b\xe9"), "a%20b%FF");
    EXPECT_EQ(KvsysCodec::DecodeFileName("a%20b%"), "a b%");
}

// XML and web forms

TEST(KvsysCodecTest, EncodeXmlEncodesTheFiveSpecialCharacters) {
    EXPECT_EQ(KvsysCodec::EncodeXML("a&b>c<d'e\"f", false), "a&amp;b&gt;c&lt;d&apos;e&quot;f");
    EXPECT_EQ(KvsysCodec::EncodeXML("", false), "");
}

TEST(KvsysCodecTest, EncodeXmlWithoutTheFlagCopiesWhiteSpace) {
    EXPECT_EQ(KvsysCodec::EncodeXML("a\tb\r\nc", false), "a\tb\r\nc");
}

TEST(KvsysCodecTest, EncodeXmlGivesTabsTheLineFeedReferenceAndLineFeedsTheCarriageReturnOne) {
    EXPECT_EQ(KvsysCodec::EncodeXML("a\tb", true), "a&#xA;b");
    EXPECT_EQ(KvsysCodec::EncodeXML("a\rb", true), "a&#xD;b");
    EXPECT_EQ(KvsysCodec::EncodeXML("a\nb", true), "a&#xD;b");
}

TEST(KvsysCodecTest, EncodeXmlDropsALineFeedBesideACarriageReturn) {
    EXPECT_EQ(KvsysCodec::EncodeXML("a\r\nb", true), "a&#xD;b");
    EXPECT_EQ(KvsysCodec::EncodeXML("a\n\rb", true), "a&#xD;b");
    EXPECT_EQ(KvsysCodec::EncodeXML("\n\n", true), "&#xD;&#xD;");
}

TEST(KvsysCodecTest, EncodeXmlEndsAtTheFirstNulByte) {
    EXPECT_EQ(KvsysCodec::EncodeXML(std::string("a<\0b", 4), false), "a&lt;");
}

TEST(KvsysCodecTest, EncodeXmlDataWithTheFullSetEncodesEightCharacters) {
    EXPECT_EQ(KvsysCodec::EncodeXmlData("&><'\"\t\n\rx", true), "&amp;&gt;&lt;&apos;&quot;&#x9;&#xa;&#xd;x");
}

TEST(KvsysCodecDeathTest, EncodeXmlDataWithTheShortSetEncodesThreeCharacters) {
    EXPECT_EXIT(ReportAndExit(KvsysCodec::EncodeXmlData("&><'\"x", false)), ExitedWithCode(0),
                "^&amp;&gt;&lt;'\"x$");
}

TEST(KvsysCodecDeathTest, EncodeXmlDataWithTheShortSetCutsTheTableForGood) {
    EXPECT_EXIT(
        {
            KvsysCodec::EncodeXmlData("", false);
            ReportAndExit(KvsysCodec::EncodeXmlData("&><'\"", true));
        },
        ExitedWithCode(0), "^&amp;&gt;&lt;'\"$");
}

TEST(KvsysCodecDeathTest, CuttingTheTableOfEncodeXmlDataLeavesDecodeXmlDataWhole) {
    EXPECT_EXIT(
        {
            KvsysCodec::EncodeXmlData("", false);
            ReportAndExit(KvsysCodec::DecodeXmlData("&lt;&quot;&apos;"));
        },
        ExitedWithCode(0), "^<\"'$");
}

TEST(KvsysCodecTest, DecodeXmlDataUndoesTheFullSet) {
    EXPECT_EQ(KvsysCodec::DecodeXmlData("&amp;&gt;&lt;&apos;&quot;&#x9;&#xa;&#xd;x"), "&><'\"\t\n\rx");
}

TEST(KvsysCodecTest, DecodeXmlDataDecodesAnEscapedEntityToTheEnd) {
    EXPECT_EQ(KvsysCodec::DecodeXmlData("&amp;lt;"), "<");
    EXPECT_EQ(KvsysCodec::DecodeXmlData("&amp;amp;"), "&amp;");
}

TEST(KvsysCodecTest, DecodeXmlDataLeavesUnknownEntities) {
    EXPECT_EQ(KvsysCodec::DecodeXmlData("&nbsp;&#x0A;&"), "&nbsp;&#x0A;&");
}

TEST(KvsysCodecTest, EncodeWebInputDataEncodesTenCharacters) {
    EXPECT_EQ(KvsysCodec::EncodeWebInputData("&><'\"|\t\r\n x", false),
              "&amp;&gt;&lt;&#x27;&quot;&#x7C;&#x09;&#x0D;&#x0A;&nbsp;x");
}

TEST(KvsysCodecTest, EncodeWebInputDataKeepsSpacesWhenAsked) {
    EXPECT_EQ(KvsysCodec::EncodeWebInputData("a b|", true), "a b&#x7C;");
    EXPECT_EQ(KvsysCodec::EncodeWebInputData("a b", false), "a&nbsp;b");
}

TEST(KvsysCodecTest, DecodeWebInputDataUndoesEncodeWebInputData) {
    EXPECT_EQ(
        KvsysCodec::DecodeWebInputData("&amp;&gt;&lt;&#x27;&quot;&#x7C;&#x09;&#x0D;&#x0A;&nbsp;x", true),
        "&><'\"|\t\r\n x");
}

TEST(KvsysCodecTest, DecodeWebInputDataDecodesTheAmpersandLast) {
    EXPECT_EQ(KvsysCodec::DecodeWebInputData("&amp;lt;&amp;nbsp;", true), "&lt;&nbsp;");
}

TEST(KvsysCodecDeathTest, DecodeWebInputDataWithoutNbspDecodesTheOtherEntities) {
    EXPECT_EXIT(ReportAndExit(KvsysCodec::DecodeWebInputData("&lt;&nbsp;&amp;lt;", false)), ExitedWithCode(0),
                "^<&nbsp;&lt;$");
}

TEST(KvsysCodecDeathTest, DecodeWebInputDataWithoutNbspDropsItForGood) {
    EXPECT_EXIT(
        {
            KvsysCodec::DecodeWebInputData("", false);
            ReportAndExit(KvsysCodec::DecodeWebInputData("a&nbsp;b&amp;", true));
        },
        ExitedWithCode(0), "^a&nbsp;b&$");
}

TEST(KvsysCodecTest, EncodeWebInputAndEscapeBackSlashDoublesBackslashesToo) {
    EXPECT_EQ(KvsysCodec::EncodeWebInputAndEscapeBackSlash("a\\b <", true), "a\\\\b &lt;");
    EXPECT_EQ(KvsysCodec::EncodeWebInputAndEscapeBackSlash("a b", false), "a&nbsp;b");
}

// HTML and line ends

TEST(KvsysCodecTest, EncodeHtmlEncodesLineEndsAndDoubleQuotesOnly) {
    EXPECT_EQ(KvsysCodec::EncodeHTML("a\r\nb\nc\"d<e>&\r", false), "a<br>b<br>c&quot;d<e>&\r");
}

TEST(KvsysCodecTest, EncodeHtmlConvertsEncodedLineFeedsWhenAsked) {
    EXPECT_EQ(KvsysCodec::EncodeHTML("a&#x0A;b", true), "a<br>b");
    EXPECT_EQ(KvsysCodec::EncodeHTML("a&#x0A;b", false), "a&#x0A;b");
}

TEST(KvsysCodecTest, DecodeHtmlTurnsLineBreaksIntoLineFeedsOnly) {
    EXPECT_EQ(KvsysCodec::DecodeHTML("a<br><br>b&quot;<BR>"), "a\n\nb&quot;<BR>");
}

TEST(KvsysCodecTest, EncodeNewLineCharactersLeavesALoneCarriageReturn) {
    EXPECT_EQ(KvsysCodec::EncodeNewLineCharacters("a\r\nb\nc\rd\""), "a<br>b<br>c\rd\"");
}

TEST(KvsysCodecTest, MultiLineDataNamesItsLineEndsAndTakesThemBack) {
    EXPECT_EQ(KvsysCodec::EncodeMultiLineData("a\r\nb\n"), "a<CR><LF>b<LF>");
    EXPECT_EQ(KvsysCodec::DecodeMultiLineData("a<CR><LF>b<LF><cr>"), "a\r\nb\n<cr>");
}

// JSON, backslashes, filters

TEST(KvsysCodecTest, EscapeJsonStringEscapesFiveCharacters) {
    EXPECT_EQ(KvsysCodec::EscapeJsonString("a\\b\"c\nd\re\tf\x01"), "a\\\\b\\\"c\\nd\\re\\tf\x01");
}

TEST(KvsysCodecTest, UnescapeJsonStringUndoesEscapeJsonString) {
    EXPECT_EQ(KvsysCodec::UnescapeJsonString("a\\\\b\\\"c\\nd\\re\\tf"), "a\\b\"c\nd\re\tf");
}

TEST(KvsysCodecTest, UnescapeJsonStringReadsFromTheLeft) {
    EXPECT_EQ(KvsysCodec::UnescapeJsonString("\\\\n"), "\\n");
    EXPECT_EQ(KvsysCodec::UnescapeJsonString("\\\\\\n"), "\\\n");
}

TEST(KvsysCodecTest, UnescapeJsonStringLeavesOtherBackslashes) {
    EXPECT_EQ(KvsysCodec::UnescapeJsonString("\\u0041\\x\\"), "\\u0041\\x\\");
}

TEST(KvsysCodecTest, EscapeInternalJsonDoublesWhatIsEscapedAlready) {
    EXPECT_EQ(KvsysCodec::EscapeInternalJSON("a\\\\b"), "a\\\\\\\\b");
    EXPECT_EQ(KvsysCodec::EscapeInternalJSON("a\\\"b"), "a\\\\\\\"b");
    EXPECT_EQ(KvsysCodec::EscapeInternalJSON("a\\nb\""), "a\\nb\"");
}

TEST(KvsysCodecTest, EncodeUnicodeCharactersBringsBackAngleBrackets) {
    EXPECT_EQ(KvsysCodec::EncodeUnicodeCharacters("\\u003cb\\u003e\\u003C\\u0026"), "<b>\\u003C\\u0026");
}

TEST(KvsysCodecTest, EscapeBackslashDoublesEveryBackslash) {
    EXPECT_EQ(KvsysCodec::EscapeBackslash("\\a\\\\b"), "\\\\a\\\\\\\\b");
}

TEST(KvsysCodecTest, UnescapeBackslashDropsTheTwoCharactersBehindThePair) {
    EXPECT_EQ(KvsysCodec::UnescapeBackslash("a\\\\bcd"), "a\\d");
    EXPECT_EQ(KvsysCodec::UnescapeBackslash("a\\\\bc"), "a\\");
}

TEST(KvsysCodecTest, UnescapeBackslashAtTheEndDropsWhatIsThere) {
    EXPECT_EQ(KvsysCodec::UnescapeBackslash("a\\\\b"), "a\\");
    EXPECT_EQ(KvsysCodec::UnescapeBackslash("a\\\\"), "a\\");
    EXPECT_EQ(KvsysCodec::UnescapeBackslash("a\\b"), "a\\b");
}

TEST(KvsysCodecTest, UnescapeBackslashLooksAgainFromTheStart) {
    EXPECT_EQ(KvsysCodec::UnescapeBackslash("\\\\ab\\\\cde"), "\\de");
}

TEST(KvsysCodecTest, EscapeTtsDataRemovesQuotesAndLineEnds) {
    EXPECT_EQ(KvsysCodec::EscapeTTSData("a'b\"c\r\nd\te"), "abcd\te");
}

TEST(KvsysCodecTest, EncodeDbFilterInputMarksUnderscoresAndBackslashes) {
    EXPECT_EQ(KvsysCodec::EncodeDBFilterInput("a_b\\c%"), "a\\_b\\\\c%");
}

TEST(KvsysCodecTest, TheDestructorIsVirtual) {
    EXPECT_TRUE(std::has_virtual_destructor_v<KvsysCodec>);
}

}  // namespace
