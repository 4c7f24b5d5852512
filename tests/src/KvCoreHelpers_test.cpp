#include "KvCoreHelpers.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/time.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>

namespace {

using std::chrono::steady_clock;

std::string SafeByteString(std::string data) {
    return KvstringSafeByteString(data.data(), static_cast<int>(data.size()));
}

/// GetVPrintLength with up to four arguments, each a machine word.
int VPrintLength(const char* format, std::array<std::uintptr_t, 4> words = {}) {
    return GetVPrintLength(format, reinterpret_cast<char*>(words.data()));
}

std::uintptr_t Word(const char* text) {
    return reinterpret_cast<std::uintptr_t>(text);
}

long MillisecondsOf(void (*sleep)(int), int argument) {
    const auto start = steady_clock::now();
    sleep(argument);
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - start).count());
}

TEST(KvCoreHelpersTest, PrintfToStringFormatsItsArguments) {
    EXPECT_EQ(printfToString("%s has %d of %5.2f%%", "queue", 3, 1.5), "queue has 3 of  1.50%");
}

TEST(KvCoreHelpersTest, PrintfToStringOfNothingIsEmpty) {
    EXPECT_EQ(printfToString("%s", ""), "");
}

TEST(KvCoreHelpersTest, PrintfToStringReturnsTextsAroundItsFirstBufferWhole) {
    for (const std::size_t length : {4093U, 4094U, 4095U, 4096U, 5000U, 6142U, 6143U}) {
        const std::string text(length, 'x');
        EXPECT_EQ(printfToString("%s", text.c_str()), text) << length;
    }
}

TEST(KvCoreHelpersTest, PrintfToStringCutsAt6143Characters) {
    const std::string text = std::string(6143, 'x') + std::string(857, 'y');
    EXPECT_EQ(printfToString("%s", text.c_str()), std::string(6143, 'x'));
    EXPECT_EQ(printfToString("%s", text.substr(0, 6144).c_str()), std::string(6143, 'x'));
}

TEST(KvCoreHelpersTest, PrintfToStringOfAFormattingErrorIsEmpty) {
    const wchar_t notInTheCLocale[] = {0x20ac, 0};
    EXPECT_EQ(printfToString("text %ls", notInTheCLocale), "");
}

TEST(KvCoreHelpersTest, SafeByteStringNamesLineEndsAndCodesOtherControls) {
    EXPECT_EQ(SafeByteString("A\r\n\x01"), "A<CR><LF><01>");
}

TEST(KvCoreHelpersTest, SafeByteStringNamesFiveControlCharacters) {
    EXPECT_EQ(SafeByteString(std::string("\0\t\n\r\x1b\x7f ~", 8)), "<NUL><TAB><LF><CR><ESC><7F> ~");
}

TEST(KvCoreHelpersTest, HighBytesAreRenderedAsTheFirstFourCharactersOfTheirSignExtendedValue) {
    EXPECT_EQ(SafeByteString("a\x80\xe9\xff"
                             "b"),
              "a<FFF<FFF<FFFb");
}

TEST(KvCoreHelpersTest, SafeByteStringEndsOnceMoreThan4090CharactersAreWritten) {
    EXPECT_EQ(SafeByteString(std::string(5000, 'x')), std::string(4091, 'x'));
    EXPECT_EQ(SafeByteString(std::string(4090, 'x') + "\x1bz"), std::string(4090, 'x') + "<ESC>");
}

TEST(KvCoreHelpersTest, SafeByteStringOfNoBytesIsEmpty) {
    char byte = 'x';
    EXPECT_EQ(KvstringSafeByteString(&byte, 0), "");
}

TEST(KvCoreHelpersTest, VPrintLengthCountsCharactersAndTheTerminator) {
    EXPECT_EQ(VPrintLength(""), 1);
    EXPECT_EQ(VPrintLength("abc"), 4);
    EXPECT_EQ(VPrintLength("100%%"), 5);
}

TEST(KvCoreHelpersTest, VPrintLengthCountsThirtyTwoForANumber) {
    for (const char* format : {"%X", "%c", "%d", "%i", "%l", "%n", "%o", "%p", "%u", "%x"}) {
        EXPECT_EQ(VPrintLength(format), 33) << format;
    }
}

TEST(KvCoreHelpersTest, VPrintLengthCountsTheLengthOfATextArgument) {
    EXPECT_EQ(VPrintLength("%s", {Word("hello")}), 6);
    EXPECT_EQ(VPrintLength("%s"), 11);
}

TEST(KvCoreHelpersTest, VPrintLengthSkipsFlags) {
    EXPECT_EQ(VPrintLength("% #+-0d"), 33);
}

TEST(KvCoreHelpersTest, VPrintLengthTakesTheArgumentsInTheirOrder) {
    EXPECT_EQ(VPrintLength("%d%s%u%s", {7, Word("ab"), 8, Word("cde")}), 1 + 32 + 2 + 32 + 3);
}

TEST(KvCoreHelpersTest, VPrintLengthUnderCountsWidthsAndFloatingPointConversions) {
    EXPECT_EQ(VPrintLength("%f"), 3);
    EXPECT_EQ(VPrintLength("%5d"), 4);
    EXPECT_EQ(VPrintLength("%f%s", {Word("hello")}), 1 + 2 + 5);
    EXPECT_EQ(VPrintLength("%ld"), 34);
}

TEST(KvCoreHelpersTest, KvGetVPrintLengthIsTheSame) {
    std::uintptr_t words[] = {Word("hello"), 1};
    char* args = reinterpret_cast<char*>(words);
    EXPECT_EQ(KvGetVPrintLength("<%s:%d>", args), 1 + 3 + 5 + 32);
    EXPECT_EQ(KvGetVPrintLength("<%s:%d>", args), GetVPrintLength("<%s:%d>", args));
}

TEST(KvCoreHelpersTest, MyThreadIdIsTheOneOfTheCaller) {
    EXPECT_EQ(GetMyThreadID(), static_cast<unsigned long>(pthread_self()));
    unsigned long other = 0;
    std::thread([&other] { other = GetMyThreadID(); }).join();
    EXPECT_NE(other, GetMyThreadID());
}

// Real time is what these three are about; the upper bounds leave room for a busy machine.

TEST(KvCoreHelpersTest, SleepTakesTheMillisecondsGiven) {
    const long elapsed = MillisecondsOf(Kvsleep, 20);
    EXPECT_GE(elapsed, 20);
    EXPECT_LT(elapsed, 900);
}

TEST(KvCoreHelpersTest, SleepOfMoreThanASecondTakesTheSecondsAndTheRest) {
    const long elapsed = MillisecondsOf(Kvsleep, 1030);
    EXPECT_GE(elapsed, 1030);
    EXPECT_LT(elapsed, 1950);
}

TEST(KvCoreHelpersTest, SleepSecTakesTheSecondsGiven) {
    const long elapsed = MillisecondsOf(KvsleepSec, 1);
    EXPECT_GE(elapsed, 1000);
    EXPECT_LT(elapsed, 1950);
}

TEST(KvCoreHelpersTest, SleepOfNoTimeReturnsAtOnce) {
    EXPECT_LT(MillisecondsOf(Kvsleep, 0), 500);
    EXPECT_LT(MillisecondsOf(KvsleepSec, 0), 500);
}

TEST(KvCoreHelpersTest, CurrTimeIsTheWallClockKeptTo32Bits) {
    timeval now{};
    gettimeofday(&now, nullptr);
    const std::int64_t wallClock = std::int64_t{now.tv_sec} * 1000 + now.tv_usec / 1000;
    const unsigned long answered = GetCurrTimeInMS();
    EXPECT_LE(answered, 0xffffffffUL);
    const auto later = static_cast<std::uint32_t>(answered) - static_cast<std::uint32_t>(wallClock);
    EXPECT_LT(later, 5000U);
}

}  // namespace
