#include "KvAny.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace {

/// Shows which caches of a value are filled.
class ProbedAny : public KvAny {
public:
    using KvAny::KvAny;
    int ValidMask() const { return validMask; }
};

TEST(KvAnyTest, StringsKeepTheirTextAndFillNoCache) {
    EXPECT_EQ(KvAny(std::string("abc")).asString(), "abc");
    EXPECT_EQ(KvAny("abc").asString(), "abc");
    EXPECT_EQ(ProbedAny(std::string("abc")).ValidMask(), 64);
    EXPECT_EQ(ProbedAny("abc").ValidMask(), 64);
}

TEST(KvAnyTest, APointerToCharactersIsAText) {
    char text[] = "true";
    EXPECT_EQ(ProbedAny(text).ValidMask(), 64);
    EXPECT_EQ(KvAny(text).asString(), "true");
}

TEST(KvAnyTest, ANullPointerIsAnEmptyText) {
    const ProbedAny value(static_cast<const char*>(nullptr));
    EXPECT_EQ(value.asString(), "");
    EXPECT_EQ(value.ValidMask(), 64);
}

TEST(KvAnyTest, ACharacterIsATextOfOneCharacter) {
    const ProbedAny value('7');
    EXPECT_EQ(value.asString(), "7");
    EXPECT_EQ(value.ValidMask(), 32);
    EXPECT_EQ(value.asChar(), '7');
}

TEST(KvAnyTest, ABoolIsTrueOrFalse) {
    EXPECT_EQ(KvAny(true).asString(), "true");
    EXPECT_EQ(KvAny(false).asString(), "false");
    EXPECT_EQ(ProbedAny(true).ValidMask(), 16);
}

TEST(KvAnyTest, ADoubleHasSixDecimals) {
    const ProbedAny value(2.5);
    EXPECT_EQ(value.asString(), "2.500000");
    EXPECT_EQ(value.ValidMask(), 8);
    EXPECT_EQ(value.asInt(), 2);
}

TEST(KvAnyTest, ADoubleKeepsItsFullValueBesideItsText) {
    EXPECT_EQ(KvAny(0.1234567891).asDouble(), 0.1234567891);
}

TEST(KvAnyTest, AnIntFillsTheIntAndTheLongCache) {
    const ProbedAny value(-42);
    EXPECT_EQ(value.asString(), "-42");
    EXPECT_EQ(value.ValidMask(), 5);
    EXPECT_EQ(value.asInt(), -42);
    EXPECT_EQ(value.asLong(), -42);
}

TEST(KvAnyTest, TheOtherIntegersFillTheirOwnCacheOnly) {
    EXPECT_EQ(ProbedAny(UINT_MAX).ValidMask(), 2);
    EXPECT_EQ(ProbedAny(-1L).ValidMask(), 4);
    EXPECT_EQ(ProbedAny(1UL).ValidMask(), 128);
    EXPECT_EQ(KvAny(UINT_MAX).asString(), "4294967295");
    EXPECT_EQ(KvAny(-1L).asString(), "-1");
    EXPECT_EQ(KvAny(ULONG_MAX).asString(), std::to_string(ULONG_MAX));
}

TEST(KvAnyTest, ABoolIsZeroAsANumberAndItselfAsABool) {
    EXPECT_EQ(KvAny(true).asInt(), 0);
    EXPECT_TRUE(KvAny(true).asBool());
    EXPECT_FALSE(KvAny(false).asBool());
}

TEST(KvAnyTest, SignedConversionsAreDecimalAndUnsignedOnesReadThePrefix) {
    const KvAny hexadecimal("0x10");
    EXPECT_EQ(hexadecimal.asUInt(), 16U);
    EXPECT_EQ(hexadecimal.asULong(), 16UL);
    EXPECT_EQ(hexadecimal.asInt(), 0);
    EXPECT_EQ(hexadecimal.asLong(), 0L);

    const KvAny leadingZero("010");
    EXPECT_EQ(leadingZero.asUInt(), 8U);
    EXPECT_EQ(leadingZero.asULong(), 8UL);
    EXPECT_EQ(leadingZero.asInt(), 10);
    EXPECT_EQ(leadingZero.asLong(), 10L);
}

TEST(KvAnyTest, NumbersAreReadAsFarAsTheyGo) {
    const KvAny value(" -12.5abc");
    EXPECT_EQ(value.asInt(), -12);
    EXPECT_EQ(value.asLong(), -12L);
    EXPECT_EQ(value.asDouble(), -12.5);
    EXPECT_EQ(KvAny("abc").asDouble(), 0.0);
    EXPECT_EQ(KvAny("").asUInt(), 0U);
}

TEST(KvAnyTest, NumbersThatAreTooLargeAreLimitedToTheRangeOfTheirType) {
    EXPECT_EQ(KvAny("5000000000").asInt(), INT_MAX);
    EXPECT_EQ(KvAny("-5000000000").asInt(), INT_MIN);
    EXPECT_EQ(KvAny("5000000000").asUInt(), UINT_MAX);
    EXPECT_EQ(KvAny("99999999999999999999").asLong(), LONG_MAX);
    EXPECT_EQ(KvAny("99999999999999999999").asULong(), ULONG_MAX);
}

TEST(KvAnyTest, ANegativeTextIsNegatedByTheUnsignedConversions) {
    EXPECT_EQ(KvAny("-5").asUInt(), UINT_MAX - 4);
    EXPECT_EQ(KvAny("-5").asULong(), ULONG_MAX - 4);
}

TEST(KvAnyTest, AConversionMarksItsCache) {
    const ProbedAny value("7");
    value.asUInt();
    EXPECT_EQ(value.ValidMask(), 64 + 2);
    value.asLong();
    value.asDouble();
    EXPECT_EQ(value.ValidMask(), 64 + 2 + 4 + 8);
    value.asULong();
    EXPECT_EQ(value.ValidMask(), 64 + 2 + 4 + 8 + 128);
}

TEST(KvAnyTest, CharAndBoolOfATextMarkTheIntCacheToo) {
    const ProbedAny character("A");
    character.asChar();
    EXPECT_EQ(character.ValidMask(), 64 + 32 + 1);
    const ProbedAny number("1");
    number.asBool();
    EXPECT_EQ(number.ValidMask(), 64 + 16 + 1);
}

TEST(KvAnyTest, CharOfAnEmptyTextAndBoolOfAWordNeedNoInt) {
    const ProbedAny nothing("");
    EXPECT_EQ(nothing.asChar(), '\0');
    EXPECT_EQ(nothing.ValidMask(), 64 + 32);
    const ProbedAny word("yes");
    word.asBool();
    EXPECT_EQ(word.ValidMask(), 64 + 16);
}

TEST(KvAnyTest, CachedValuesAreAnsweredWithoutReadingTheTextAgain) {
    class ChangedAny : public KvAny {
    public:
        using KvAny::KvAny;
        void ChangeText(const std::string& value) { text = value; }
    };
    ChangedAny value("5");
    EXPECT_EQ(value.asInt(), 5);
    value.ChangeText("6");
    EXPECT_EQ(value.asInt(), 5);
    EXPECT_EQ(value.asUInt(), 6U);
}

TEST(KvAnyTest, CharOfATextThatIsNoNumberIsItsFirstCharacter) {
    EXPECT_EQ(KvAny("A").asChar(), 'A');
}

TEST(KvAnyTest, CharOfANumberIsTheCharacterWithThatCode) {
    EXPECT_EQ(KvAny("65").asChar(), 'A');
    EXPECT_EQ(KvAny("321").asChar(), 'A');
    EXPECT_EQ(KvAny("0").asChar(), '0');
}

TEST(KvAnyTest, BoolOfAYesWordIsTrueInAnyCase) {
    for (const char* word : {"yes", "YES", "true", "True", "y", "Y", "t", "T"}) {
        EXPECT_TRUE(KvAny(word).asBool()) << word;
    }
    for (const char* word : {"no", "false", "yess", "on", "", " y"}) {
        EXPECT_FALSE(KvAny(word).asBool()) << word;
    }
}

TEST(KvAnyTest, BoolOfANumberIsTrueFromOne) {
    EXPECT_TRUE(KvAny("1").asBool());
    EXPECT_TRUE(KvAny(2).asBool());
    EXPECT_FALSE(KvAny("0").asBool());
    EXPECT_FALSE(KvAny(0.9).asBool());
}

TEST(KvAnyTest, BoolOfANegativeNumberIsFalse) {
    EXPECT_FALSE(KvAny("-5").asBool());
    EXPECT_FALSE(KvAny("-1").asBool());
    EXPECT_FALSE(KvAny(-1).asBool());
}

TEST(KvAnyTest, CopiesTakeTheCachesAlong) {
    const ProbedAny original(2.5);
    original.asInt();
    const ProbedAny copy(original);
    EXPECT_EQ(copy.ValidMask(), 8 + 1);
    EXPECT_EQ(copy.asDouble(), 2.5);

    ProbedAny assigned("old");
    assigned = original;
    EXPECT_EQ(assigned.asString(), "2.500000");
    EXPECT_EQ(assigned.ValidMask(), 8 + 1);
}

}  // namespace
