#include "KvString.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Texts = std::vector<std::string>;

TEST(KvStringTest, CommandLineArgumentsAreSeparatedByWhiteSpace) {
    EXPECT_EQ(BuildCommandLineArguments(" mail \t-s  a\n"), (Texts{"mail", "-s", "a"}));
    EXPECT_EQ(BuildCommandLineArguments(" "), Texts{});
}

TEST(KvStringTest, QuotesKeepWhiteSpaceInACommandLineArgument) {
    EXPECT_EQ(BuildCommandLineArguments("mail -s \"a  b\" x\" \"y"), (Texts{"mail", "-s", "a  b", "x y"}));
    EXPECT_EQ(BuildCommandLineArguments("a \"\" b"), (Texts{"a", "", "b"}));
}

TEST(KvStringTest, TheLastQuoteOfACommandLineMayBeMissing) {
    EXPECT_EQ(BuildCommandLineArguments("a \"b c"), (Texts{"a", "b c"}));
}

TEST(KvStringTest, ABackslashMakesAQuoteOrABackslashOrdinary) {
    EXPECT_EQ(BuildCommandLineArguments("a\\\"b \"c\\\\\" d\\n e\\"), (Texts{"a\"b", "c\\", "d\\n", "e\\"}));
}

TEST(KvStringTest, ArgumentEncodeQuotesAnArgument) {
    EXPECT_EQ(KvstringArgumentEncode("a \"b\""), "\"a \\\"b\\\"\"");
    EXPECT_EQ(KvstringArgumentEncode(""), "\"\"");
}

TEST(KvStringTest, AnEncodedArgumentIsReadBackAsOne) {
    for (const std::string argument : {"", " ", "a\\", "\\\"", "\"a\" \\\\ b\t", "\\n"}) {
        EXPECT_EQ(BuildCommandLineArguments("x " + KvstringArgumentEncode(argument)), (Texts{"x", argument}));
    }
}

}  // namespace
