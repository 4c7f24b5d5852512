#include "PeopleText.h"

#include <gtest/gtest.h>

#include "TextTable.h"

namespace kvhost {
namespace {

using std::chrono::milliseconds;

TEST(PeopleTextTest, AnAgeIsToldInWords) {
    const StoreTime now = FromNumber(1'700'000'000'000);
    EXPECT_EQ(Ago(now, now), "just now");
    EXPECT_EQ(Ago(now - milliseconds(999), now), "just now");
    EXPECT_EQ(Ago(now - milliseconds(310000), now), "5 min 10 s ago");
    EXPECT_EQ(Ago(now + milliseconds(250000), now), "in 4 min 10 s");
}

TEST(PeopleTextTest, SizesAreToldInTheUnitThatFits) {
    EXPECT_EQ(SizeText(0), "0 B");
    EXPECT_EQ(SizeText(999), "999 B");
    EXPECT_EQ(SizeText(1000), "1.0 kB");
    EXPECT_EQ(SizeText(12'345'678), "12.3 MB");
    EXPECT_EQ(SizeText(999'960), "1.0 MB");
    EXPECT_EQ(SizeText(5'000'000'000), "5.0 GB");
}

TEST(TextTableTest, ColumnsAreAlignedByCodePoints) {
    TextTable table({{"NAME"}, {"SIZE", TextTable::Align::Right}, {"NOTE"}});
    EXPECT_TRUE(table.IsEmpty());
    table.Add({"größe", "7", ""});
    table.Add({"a\tb", "12345", "x"});
    EXPECT_EQ(table.Text(1),
              " NAME      SIZE  NOTE\n"
              " größe        7\n"
              " a<TAB>b  12345  x\n");
}

TEST(TextTableTest, ATextIsCutOffBetweenCodePoints) {
    EXPECT_EQ(Shorten("größer", 6), "größer");
    EXPECT_EQ(Shorten("größer", 5), "größ…");
    EXPECT_EQ(Shorten("größer", 3), "gr…");
    EXPECT_EQ(Shorten("größer", 1), "…");
    EXPECT_EQ(Shorten("", 5), "");
}

}  // namespace
}  // namespace kvhost
