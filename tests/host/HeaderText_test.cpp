#include "HeaderText.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <vector>

#include "KvsysCodec.h"

namespace kvhost {
namespace {

std::vector<std::string> Words(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> words;
    for (std::string word; std::getline(stream, word, ' ');) {
        words.push_back(word);
    }
    return words;
}

std::string Unpacked(const std::string& word) {
    EXPECT_EQ(word.substr(0, 10), "=?UTF-8?B?");
    EXPECT_EQ(word.substr(word.size() - 2), "?=");
    std::string bytes = word.substr(10, word.size() - 12);
    int length = static_cast<int>(bytes.size());
    KvsysCodec::DecodeBase64(reinterpret_cast<unsigned char*>(bytes.data()), length);
    return bytes.substr(0, static_cast<std::size_t>(length));
}

/// What a decoder of RFC 2047 makes of encoded words.
std::string Decoded(const std::string& text) {
    std::string bytes;
    for (const std::string& word : Words(text)) {
        bytes += Unpacked(word);
    }
    return bytes;
}

TEST(HeaderTextTest, ShortPrintableAsciiGoesAsItIs) {
    for (const std::string& text : {std::string(), std::string("Pump 3: (low) <\"x\"> \\ a  b ;,"),
                                    std::string(64, '~'), std::string("? =x?=")}) {
        EXPECT_EQ(HeaderText(text), text);
    }
}

TEST(HeaderTextTest, EverythingElseIsEncoded) {
    EXPECT_EQ(HeaderText(" x"), "=?UTF-8?B?IHg=?=");
    EXPECT_EQ(HeaderText("x "), "=?UTF-8?B?eCA=?=");
    EXPECT_EQ(HeaderText(" "), "=?UTF-8?B?IA==?=");
    EXPECT_EQ(HeaderText("a\tb"), "=?UTF-8?B?YQli?=");
    EXPECT_EQ(HeaderText("a\r\nBcc: x"), "=?UTF-8?B?YQ0KQmNjOiB4?=");
    EXPECT_EQ(HeaderText("=?x"), "=?UTF-8?B?PT94?=");
    EXPECT_EQ(HeaderText("\x7F"), "=?UTF-8?B?fw==?=");
    EXPECT_EQ(HeaderText("\xC3\xBC"), "=?UTF-8?B?w7w=?=");
    EXPECT_EQ(Decoded(HeaderText(std::string(65, 'x'))), std::string(65, 'x'));
}

TEST(HeaderTextTest, AWordHasAtMost64Bytes) {
    for (const std::string& word : Words(HeaderText(std::string(1000, 'x')))) {
        EXPECT_LE(word.size(), 64U);
    }
    EXPECT_EQ(Words(HeaderText(std::string(78, 'x'))).size(), 2U);
}

TEST(HeaderTextTest, ACharacterStaysWithinItsWord) {
    for (const char* character : {"\xC3\xBC", "\xE2\x82\xAC", "\xF0\x9F\x9A\x80"}) {
        for (std::size_t shift = 0; shift < 4; ++shift) {
            std::string text(shift, 'x');
            for (int i = 0; i < 50; ++i) {
                text += character;
            }
            for (const std::string& word : Words(HeaderText(text))) {
                const std::string bytes = Unpacked(word);
                EXPECT_NE(static_cast<unsigned char>(bytes.front()) & 0xC0U, 0x80U);
            }
            EXPECT_EQ(Decoded(HeaderText(text)), text);
        }
    }
}

TEST(HeaderTextTest, BytesThatAreNoUtf8GoInAsTheyAre) {
    const std::string text(200, '\x80');
    EXPECT_EQ(Decoded(HeaderText(text)), text);
}

TEST(HeaderTextTest, AnyBytesAreDecodedToWhatTheyWere) {
    std::mt19937 random(42);
    for (int i = 0; i < 2000; ++i) {
        std::string text(1 + random() % 300, '\xFF');
        for (std::size_t at = 1; at < text.size(); ++at) {
            text[at] = static_cast<char>(random() % 256);
        }
        EXPECT_EQ(Decoded(HeaderText(text)), text);
    }
}

}  // namespace
}  // namespace kvhost
