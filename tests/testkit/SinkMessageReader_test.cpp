#include <gtest/gtest.h>

#include "sink/MessageReader.h"

using kvsink::MessageReader;

namespace {

/// What a reader makes of `input`, handed over in pieces of `piece` bytes.
struct Reading {
    std::string content;
    std::size_t taken = 0;
    bool ended = false;
    std::uint64_t size = 0;
};

Reading read(const std::string& input, std::size_t piece) {
    MessageReader reader;
    Reading reading;
    while (reading.taken < input.size() && !reader.atEnd()) {
        reading.taken +=
            reader.consume(std::string_view(input).substr(reading.taken, piece), &reading.content);
    }
    reading.ended = reader.atEnd();
    reading.size = reader.size();
    return reading;
}

/// Reads `input` whole and in all smaller pieces, which must not make a difference.
Reading readInAnyPieces(const std::string& input) {
    const Reading whole = read(input, input.size());
    for (std::size_t piece = 1; piece < input.size(); ++piece) {
        const Reading parts = read(input, piece);
        EXPECT_EQ(parts.content, whole.content) << "in pieces of " << piece;
        EXPECT_EQ(parts.taken, whole.taken) << "in pieces of " << piece;
        EXPECT_EQ(parts.ended, whole.ended) << "in pieces of " << piece;
    }
    return whole;
}

}  // namespace

TEST(SinkMessageReaderTest, ContentEndsAtALoneDot) {
    const Reading reading = readInAnyPieces("Subject: x\r\n\r\nHello\r\n.\r\n");
    EXPECT_TRUE(reading.ended);
    EXPECT_EQ(reading.content, "Subject: x\r\n\r\nHello\r\n");
    EXPECT_EQ(reading.size, 21U);
}

TEST(SinkMessageReaderTest, ALoneDotOnTheFirstLineEndsAnEmptyMail) {
    const Reading reading = readInAnyPieces(".\r\n");
    EXPECT_TRUE(reading.ended);
    EXPECT_EQ(reading.content, "");
}

TEST(SinkMessageReaderTest, WhatFollowsTheEndIsNotTaken) {
    const Reading reading = readInAnyPieces("a\r\n.\r\nQUIT\r\n");
    EXPECT_EQ(reading.taken, 6U);
}

TEST(SinkMessageReaderTest, StuffedDotsAreRemoved) {
    const Reading reading = readInAnyPieces("..first\r\na..b\r\n..\r\n...\r\n.\r\n");
    EXPECT_EQ(reading.content, ".first\r\na..b\r\n.\r\n..\r\n");
}

TEST(SinkMessageReaderTest, ADotBeforeOtherTextIsRemoved) {
    EXPECT_EQ(readInAnyPieces(".x\r\n.\r\n").content, "x\r\n");
}

TEST(SinkMessageReaderTest, BareLineFeedsDoNotEndTheContent) {
    const Reading reading = readInAnyPieces("a\n.\nb\n.\r\nc\r\n.\nd\r\n.\r\n");
    EXPECT_TRUE(reading.ended);
    EXPECT_EQ(reading.content, "a\n.\nb\n.\r\nc\r\n\nd\r\n");
}

TEST(SinkMessageReaderTest, BareCarriageReturnsDoNotEndTheContent) {
    const Reading reading = readInAnyPieces("a\r.\rb\r\n.\rc\r\r\n.\r\r\n\r\n.\r\n");
    EXPECT_TRUE(reading.ended);
    EXPECT_EQ(reading.content, "a\r.\rb\r\n\rc\r\r\n\r\r\n\r\n");
}

TEST(SinkMessageReaderTest, NoEndWithoutTheLastLineFeed) {
    const Reading reading = readInAnyPieces("a\r\n.\r");
    EXPECT_FALSE(reading.ended);
    EXPECT_EQ(reading.content, "a\r\n");
}

TEST(SinkMessageReaderTest, NulAndEightBitBytesPassUnchanged) {
    const std::string bytes("\0\x80\xFF\r\n", 5);
    EXPECT_EQ(readInAnyPieces(bytes + ".\r\n").content, bytes);
}

TEST(SinkMessageReaderTest, SizeIsCountedWithoutABuffer) {
    MessageReader reader;
    EXPECT_EQ(reader.consume("..abc\r\n.\r\n", nullptr), 10U);
    EXPECT_TRUE(reader.atEnd());
    EXPECT_EQ(reader.size(), 6U);
}

TEST(SinkMessageReaderTest, ResetBeginsTheNextMail) {
    MessageReader reader;
    std::string content;
    reader.consume("a\r\n.\r\n", &content);
    reader.reset();
    EXPECT_FALSE(reader.atEnd());
    EXPECT_EQ(reader.size(), 0U);
    reader.consume(".\r\n", &content);
    EXPECT_TRUE(reader.atEnd());
}
