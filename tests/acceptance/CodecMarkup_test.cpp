#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AcceptedTextKit.h"
#include "KvsysCodec.h"

namespace {

using acceptedtext::Bytes;
using acceptedtext::Conversion;
using acceptedtext::InAChild;

const std::string kAllSpecial = "&><'\"\t\r\n |a";

// ---- XML in one pass ----

const std::vector<Conversion> kXml{Conversion{"Ampersand", "&", "&amp;"},
                                   Conversion{"Greater", ">", "&gt;"},
                                   Conversion{"Less", "<", "&lt;"},
                                   Conversion{"Apostrophe", "'", "&apos;"},
                                   Conversion{"Quote", "\"", "&quot;"},
                                   Conversion{"WhiteSpaceStays", "\t\r\n ", "\t\r\n "},
                                   Conversion{"Empty", "", ""},
                                   Conversion{"Text", "a<b>&\"c'", "a&lt;b&gt;&amp;&quot;c&apos;"},
                                   Conversion{"EncodedAgain", "&amp;", "&amp;amp;"},
                                   Conversion{"HighBytesStay", "\xe9\xff", "\xe9\xff"},
                                   Conversion{"EndsAtTheFirstNul", Bytes("a<\0b>"), "a&lt;"}};

TEST(AcceptedXml, Gives) {
    for (const Conversion& row : kXml) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(KvsysCodec::EncodeXML(row.in, false), row.out);
    }
}

const std::vector<Conversion> kXmlWhiteSpace{Conversion{"Tab", "\t", "&#xA;"},
                                             Conversion{"CarriageReturn", "\r", "&#xD;"},
                                             Conversion{"LineFeed", "\n", "&#xD;"},
                                             Conversion{"LineEnd", "a\r\nb", "a&#xD;b"},
                                             Conversion{"LineFeedBeforeCarriageReturn", "a\n\rb", "a&#xD;b"},
                                             Conversion{"TwoLineFeeds", "\n\n", "&#xD;&#xD;"},
                                             Conversion{"TwoLineEnds", "\r\n\r\n", "&#xD;&#xD;"},
                                             Conversion{"LineEndAndLineFeed", "\r\n\n", "&#xD;&#xD;"},
                                             Conversion{"TwoCarriageReturns", "\r\r", "&#xD;&#xD;"},
                                             Conversion{"SpaceStays", " ", " "},
                                             Conversion{"Markup", "<\t>", "&lt;&#xA;&gt;"},
                                             Conversion{"Quotes", "'\"&", "&apos;&quot;&amp;"},
                                             Conversion{"Empty", "", ""},
                                             Conversion{"EndsAtTheFirstNul", Bytes("\t\0\t"), "&#xA;"}};

TEST(AcceptedXmlWhiteSpace, Gives) {
    for (const Conversion& row : kXmlWhiteSpace) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(KvsysCodec::EncodeXML(row.in, true), row.out);
    }
}

// ---- XML by the table ----

const std::vector<Conversion> kXmlData{Conversion{"Ampersand", "&", "&amp;"},
                                       Conversion{"Greater", ">", "&gt;"},
                                       Conversion{"Less", "<", "&lt;"},
                                       Conversion{"Apostrophe", "'", "&apos;"},
                                       Conversion{"Quote", "\"", "&quot;"},
                                       Conversion{"Tab", "\t", "&#x9;"},
                                       Conversion{"LineFeed", "\n", "&#xa;"},
                                       Conversion{"CarriageReturn", "\r", "&#xd;"},
                                       Conversion{"Others", "a |\xe9", "a |\xe9"},
                                       Conversion{"Empty", "", ""},
                                       Conversion{"Text", "a\r\n<b>", "a&#xd;&#xa;&lt;b&gt;"}};

TEST(AcceptedXmlData, IsEncoded) {
    for (const Conversion& row : kXmlData) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(KvsysCodec::EncodeXmlData(row.in, true), row.out);
    }
}

TEST(AcceptedXmlData, IsDecodedBack) {
    for (const Conversion& row : kXmlData) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(KvsysCodec::DecodeXmlData(row.out), row.in);
    }
}

TEST(AcceptedXmlDataShort, EncodesThreeCharactersOnly) {
    EXPECT_EQ(InAChild([] { return KvsysCodec::EncodeXmlData(kAllSpecial, false); }),
              "&amp;&gt;&lt;'\"\t\r\n |a");
}

TEST(AcceptedXmlDataShort, CutsTheTableOfTheProcessForGood) {
    EXPECT_EQ(InAChild([] {
                  KvsysCodec::EncodeXmlData("", false);
                  return KvsysCodec::EncodeXmlData(kAllSpecial, true);
              }),
              "&amp;&gt;&lt;'\"\t\r\n |a");
}

TEST(AcceptedXmlDataShort, LeavesDecodingAlone) {
    EXPECT_EQ(InAChild([] {
                  KvsysCodec::EncodeXmlData("x", false);
                  return KvsysCodec::DecodeXmlData("&amp;&gt;&lt;&apos;&quot;&#x9;&#xa;&#xd;");
              }),
              "&><'\"\t\n\r");
}

const std::vector<Conversion> kXmlDecoding{
    Conversion{"EscapedEntityToTheEnd", "&amp;lt;", "<"},
    Conversion{"EscapedReferenceToTheEnd", "&amp;#x9;", "\t"},
    Conversion{"SearchGoesOnBehindTheReplacement", "&amp;amp;", "&amp;"},
    Conversion{"TwoOfARow", "&amp;&amp;&lt;&lt;", "&&<<"},
    Conversion{"CaseMatters", "&LT;&#xA;&#x09;", "&LT;&#xA;&#x09;"},
    Conversion{"Unknown", "&nbsp;&copy;", "&nbsp;&copy;"},
    Conversion{"Unfinished", "&amp &lt", "&amp &lt"},
    Conversion{"Empty", "", ""}};

TEST(AcceptedXmlDecoding, Gives) {
    for (const Conversion& row : kXmlDecoding) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(KvsysCodec::DecodeXmlData(row.in), row.out);
    }
}

// ---- web forms ----

const std::vector<Conversion> kWebInput{Conversion{"Ampersand", "&", "&amp;"},
                                        Conversion{"Greater", ">", "&gt;"},
                                        Conversion{"Less", "<", "&lt;"},
                                        Conversion{"Apostrophe", "'", "&#x27;"},
                                        Conversion{"Quote", "\"", "&quot;"},
                                        Conversion{"Bar", "|", "&#x7C;"},
                                        Conversion{"Tab", "\t", "&#x09;"},
                                        Conversion{"CarriageReturn", "\r", "&#x0D;"},
                                        Conversion{"LineFeed", "\n", "&#x0A;"},
                                        Conversion{"Space", " ", "&nbsp;"},
                                        Conversion{"Others", "a\\\xe9", "a\\\xe9"},
                                        Conversion{"Empty", "", ""}};

TEST(AcceptedWebInput, IsEncoded) {
    for (const Conversion& row : kWebInput) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(KvsysCodec::EncodeWebInputData(row.in, false), row.out);
    }
}

TEST(AcceptedWebInput, IsDecodedBack) {
    for (const Conversion& row : kWebInput) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(KvsysCodec::DecodeWebInputData(row.out, true), row.in);
    }
}

TEST(AcceptedWebInputText, KeepsSpacesWhenAskedTo) {
    EXPECT_EQ(KvsysCodec::EncodeWebInputData(" a b\t", true), " a b&#x09;");
    EXPECT_EQ(KvsysCodec::EncodeWebInputData(" a b\t", false), "&nbsp;a&nbsp;b&#x09;");
}

TEST(AcceptedWebInputText, RemembersNoFlag) {
    KvsysCodec::EncodeWebInputData(" ", true);
    EXPECT_EQ(KvsysCodec::EncodeWebInputData(" ", false), "&nbsp;");
}

TEST(AcceptedWebInputText, HasItsBackslashesDoubledByTheCombinedForm) {
    EXPECT_EQ(KvsysCodec::EncodeWebInputAndEscapeBackSlash("a\\ <", false), "a\\\\&nbsp;&lt;");
    EXPECT_EQ(KvsysCodec::EncodeWebInputAndEscapeBackSlash("a\\ <", true), "a\\\\ &lt;");
}

const std::vector<Conversion> kWebDecoding{Conversion{"EscapedEntityStays", "&amp;lt;", "&lt;"},
                                           Conversion{"EscapedBlankStays", "&amp;nbsp;", "&nbsp;"},
                                           Conversion{"EscapedAmpersand", "&amp;amp;", "&amp;"},
                                           Conversion{"CaseMatters", "&#x7c;&GT;", "&#x7c;&GT;"},
                                           Conversion{"Apos", "&apos;", "&apos;"},
                                           Conversion{"Several", "&lt;&lt;&nbsp;&nbsp;", "<<  "},
                                           Conversion{"Empty", "", ""}};

TEST(AcceptedWebDecoding, Gives) {
    for (const Conversion& row : kWebDecoding) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(KvsysCodec::DecodeWebInputData(row.in, true), row.out);
    }
}

const std::string kAllWebEntities = "&gt;&lt;&#x27;&quot;&#x7C;&#x09;&#x0D;&#x0A;&nbsp;&amp;";

TEST(AcceptedWebDecodingWithoutBlank, DecodesEverythingElse) {
    EXPECT_EQ(InAChild([] { return KvsysCodec::DecodeWebInputData(kAllWebEntities, false); }),
              "><'\"|\t\r\n&nbsp;&");
}

TEST(AcceptedWebDecodingWithoutBlank, DropsItForTheProcessForGood) {
    EXPECT_EQ(InAChild([] {
                  KvsysCodec::DecodeWebInputData("", false);
                  return KvsysCodec::DecodeWebInputData(kAllWebEntities, true);
              }),
              "><'\"|\t\r\n&nbsp;&");
}

TEST(AcceptedWebDecodingWithoutBlank, MayBeAskedForAgain) {
    EXPECT_EQ(InAChild([] {
                  KvsysCodec::DecodeWebInputData("", false);
                  KvsysCodec::DecodeWebInputData("", false);
                  return KvsysCodec::DecodeWebInputData(kAllWebEntities, false);
              }),
              "><'\"|\t\r\n&nbsp;&");
}

TEST(AcceptedWebDecodingWithoutBlank, LeavesEncodingAlone) {
    EXPECT_EQ(InAChild([] {
                  KvsysCodec::DecodeWebInputData("", false);
                  return KvsysCodec::EncodeWebInputData(" &", false);
              }),
              "&nbsp;&amp;");
}

// ---- HTML and line ends ----

const std::vector<Conversion> kHtml{Conversion{"LineEnd", "a\r\nb", "a<br>b"},
                                    Conversion{"LineFeed", "a\nb\n", "a<br>b<br>"},
                                    Conversion{"LoneCarriageReturn", "a\rb", "a\rb"},
                                    Conversion{"TwoOfEach", "\r\n\r\n\n\n", "<br><br><br><br>"},
                                    Conversion{"CarriageReturnBeforeALineEnd", "\r\r\n", "\r<br>"},
                                    Conversion{"Quote", "\"a\"", "&quot;a&quot;"},
                                    Conversion{"EncodedLineFeed", "a&#x0A;b", "a<br>b"},
                                    Conversion{"MarkupStays", "<a>&'", "<a>&'"},
                                    Conversion{"OtherReference", "&#x0D;", "&#x0D;"},
                                    Conversion{"Empty", "", ""}};

TEST(AcceptedHtml, Gives) {
    for (const Conversion& row : kHtml) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(KvsysCodec::EncodeHTML(row.in, true), row.out);
    }
}

TEST(AcceptedHtmlText, KeepsEncodedLineFeedsWithoutTheFlag) {
    EXPECT_EQ(KvsysCodec::EncodeHTML("a&#x0A;b\r\n\"\n", false), "a&#x0A;b<br>&quot;<br>");
}

TEST(AcceptedHtmlText, IsDecodedToLineFeedsOnly) {
    EXPECT_EQ(KvsysCodec::DecodeHTML("a<br>b<br><br>"), "a\nb\n\n");
    EXPECT_EQ(KvsysCodec::DecodeHTML("<BR>&quot;<br/>&lt;"), "<BR>&quot;<br/>&lt;");
    EXPECT_EQ(KvsysCodec::DecodeHTML(""), "");
}

TEST(AcceptedNewLines, BecomeBreaks) {
    EXPECT_EQ(KvsysCodec::EncodeNewLineCharacters("a\r\nb\nc"), "a<br>b<br>c");
    EXPECT_EQ(KvsysCodec::EncodeNewLineCharacters("a\rb"), "a\rb");
    EXPECT_EQ(KvsysCodec::EncodeNewLineCharacters("\"&#x0A;"), "\"&#x0A;");
    EXPECT_EQ(KvsysCodec::EncodeNewLineCharacters(""), "");
}

TEST(AcceptedMultiLine, EncodesEachCharacterByItself) {
    EXPECT_EQ(KvsysCodec::EncodeMultiLineData("a\r\nb\n\r"), "a<CR><LF>b<LF><CR>");
    EXPECT_EQ(KvsysCodec::EncodeMultiLineData(Bytes("<\t\0>")), Bytes("<\t\0>"));
    EXPECT_EQ(KvsysCodec::EncodeMultiLineData(""), "");
}

TEST(AcceptedMultiLine, IsDecodedBack) {
    EXPECT_EQ(KvsysCodec::DecodeMultiLineData("a<CR><LF>b<LF><LF><CR>"), "a\r\nb\n\n\r");
    EXPECT_EQ(KvsysCodec::DecodeMultiLineData("<cr><lf><CR"), "<cr><lf><CR");
    EXPECT_EQ(KvsysCodec::DecodeMultiLineData("<<CR>LF>"), "<\rLF>");
}

}  // namespace
