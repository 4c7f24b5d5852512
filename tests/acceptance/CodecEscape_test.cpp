#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AcceptedTextKit.h"
#include "KvsysCodec.h"

namespace {

using acceptedtext::Bytes;
using acceptedtext::Conversion;

/// Calls `function` with the first text of every row and expects the second.
void ExpectEach(std::string (*function)(const std::string&), const std::vector<Conversion>& rows) {
    for (const Conversion& row : rows) {
        EXPECT_EQ(function(row.in), row.out) << row.name;
    }
}

TEST(AcceptedEscape, OfJsonText) {
    ExpectEach(&KvsysCodec::EscapeJsonString, {{"Backslash", R"(\)", R"(\\)"},
                                               {"Quote", R"(")", R"(\")"},
                                               {"LineFeed", "\n", R"(\n)"},
                                               {"CarriageReturn", "\r", R"(\r)"},
                                               {"Tab", "\t", R"(\t)"},
                                               {"BackslashAndQuote", R"(\")", R"(\\\")"},
                                               {"TwoBackslashes", R"(\\)", R"(\\\\)"},
                                               {"TwoQuotes", R"("")", R"(\"\")"},
                                               {"EscapedAlready", R"(\n)", R"(\\n)"},
                                               {"OtherControlCharactersStay", "\b\f\x01/", "\b\f\x01/"},
                                               {"Nul", Bytes("a\0\n"), Bytes("a\0\\n")},
                                               {"Text", "a\r\n\t\"b\"", R"(a\r\n\t\"b\")"},
                                               {"Empty", "", ""}});
}

TEST(AcceptedEscape, OfJsonIsUndone) {
    ExpectEach(&KvsysCodec::UnescapeJsonString, {{"LineFeed", R"(\n)", "\n"},
                                                 {"CarriageReturn", R"(\r)", "\r"},
                                                 {"Tab", R"(\t)", "\t"},
                                                 {"Quote", R"(\")", "\""},
                                                 {"Backslash", R"(\\)", R"(\)"},
                                                 {"EscapedBackslashAndLetter", R"(\\n)", R"(\n)"},
                                                 {"ThreeBackslashesAndLetter", R"(\\\n)", "\\\n"},
                                                 {"UnicodeStays", R"(\u0041)", R"(\u0041)"},
                                                 {"OtherPairStays", R"(\b\/\x)", R"(\b\/\x)"},
                                                 {"OtherPairThenEscape", R"(\x\n)", "\\x\n"},
                                                 {"LoneAtTheEnd", R"(a\)", R"(a\)"},
                                                 {"Text", R"(a\tb\"c\")", "a\tb\"c\""},
                                                 {"Empty", "", ""}});
}

TEST(AcceptedJson, IsUnescapedBack) {
    std::string all;
    for (int c = 0; c < 256; ++c) {
        all += std::string(2, static_cast<char>(c)) + "\\";
    }
    EXPECT_EQ(KvsysCodec::UnescapeJsonString(KvsysCodec::EscapeJsonString(all)), all);
}

TEST(AcceptedEscape, OfJsonInsideJson) {
    ExpectEach(&KvsysCodec::EscapeInternalJSON, {{"Pair", R"(\\)", R"(\\\\)"},
                                                 {"TwoPairs", R"(\\\\)", R"(\\\\\\\\)"},
                                                 {"PairAndOne", R"(\\\)", R"(\\\\\)"},
                                                 {"EscapedQuote", R"(\")", R"(\\\")"},
                                                 {"TwoEscapedQuotes", R"(\"\")", R"(\\\"\\\")"},
                                                 {"PairAndQuote", R"(\\")", R"(\\\\\\")"},
                                                 {"LoneBackslash", R"(a\nb)", R"(a\nb)"},
                                                 {"LoneQuote", R"(")", R"(")"},
                                                 {"Empty", "", ""}});
}

TEST(AcceptedEscape, OfUnicodeIsUndone) {
    ExpectEach(&KvsysCodec::EncodeUnicodeCharacters,
               {{"Less", R"(\u003c)", "<"},
                {"Greater", R"(\u003e)", ">"},
                {"Several", R"(\u003cb\u003e\u003c/b\u003e)", "<b></b>"},
                {"UpperCaseStays", R"(\u003C\u003E)", R"(\u003C\u003E)"},
                {"OthersStay", R"(\u0026<>)", R"(\u0026<>)"},
                {"Unfinished", R"(\u003)", R"(\u003)"},
                {"Empty", "", ""}});
}

TEST(AcceptedEscape, OfBackslashesDoublesThem) {
    ExpectEach(&KvsysCodec::EscapeBackslash, {{"One", R"(\)", R"(\\)"},
                                              {"Two", R"(\\)", R"(\\\\)"},
                                              {"Path", R"(C:\a\b)", R"(C:\\a\\b)"},
                                              {"None", "a/b\"\n", "a/b\"\n"},
                                              {"Nul", Bytes("\\\0\\"), Bytes("\\\\\0\\\\")},
                                              {"Empty", "", ""}});
}

// Four characters from the pair on become one backslash.
TEST(AcceptedEscape, OfBackslashesIsUndoneWithALoss) {
    ExpectEach(&KvsysCodec::UnescapeBackslash, {{"DropsTheTwoBehindThePair", R"(a\\bc)", R"(a\)"},
                                                {"KeepsTheThirdBehindThePair", R"(a\\bcd)", R"(a\d)"},
                                                {"OneBehindThePair", R"(\\b)", R"(\)"},
                                                {"PairAtTheEnd", R"(ab\\)", R"(ab\)"},
                                                {"FourBackslashes", R"(\\\\)", R"(\)"},
                                                {"FiveBackslashes", R"(\\\\\)", R"(\)"},
                                                {"PairFormedByTheReplacement", R"(\\ab\cdef)", R"(\ef)"},
                                                {"TwoPairs", R"(\\ab-\\cd-)", R"(\-\-)"},
                                                {"LoneBackslash", R"(a\b)", R"(a\b)"},
                                                {"Empty", "", ""}});
}

TEST(AcceptedEscape, ForSpeechRemovesFourCharacters) {
    ExpectEach(&KvsysCodec::EscapeTTSData, {{"Apostrophe", "it's", "its"},
                                            {"Quote", "\"a\"", "a"},
                                            {"LineEnds", "a\r\nb\nc\r", "abc"},
                                            {"All", "'\"\r\n", ""},
                                            {"OthersStay", "a\t\\<&`", "a\t\\<&`"},
                                            {"Empty", "", ""}});
}

TEST(AcceptedEscape, ForADatabaseFilter) {
    ExpectEach(&KvsysCodec::EncodeDBFilterInput, {{"Underscore", "a_b", R"(a\_b)"},
                                                  {"Backslash", R"(a\b)", R"(a\\b)"},
                                                  {"Both", R"(\_)", R"(\\\_)"},
                                                  {"Several", "__", R"(\_\_)"},
                                                  {"OthersStay", "%'[", "%'["},
                                                  {"Empty", "", ""}});
}

}  // namespace
