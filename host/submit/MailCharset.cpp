#include "MailCharset.h"

#include <algorithm>
#include <string_view>

#include "MailHeader.h"
#include "TransferDecoding.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

std::string FromLatin1(const std::string& bytes) {
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            text += c;
        } else {
            text += static_cast<char>(0xC0U | (byte >> 6U));
            text += static_cast<char>(0x80U | (byte & 0x3FU));
        }
    }
    return text;
}

struct EncodedWord {
    std::string charset;
    std::string bytes;
    std::size_t length = 0;  ///< in the text
};

/// Q is quoted-printable with underscores for blanks; a line has no end in it.
std::optional<std::string> DecodeQ(std::string text) {
    std::replace(text.begin(), text.end(), '_', ' ');
    // A blank at the end would be taken for the padding of a line.
    if (!text.empty() && text.back() == ' ') {
        text.replace(text.size() - 1, 1, "=20");
    }
    return text.find('\n') == std::string::npos ? DecodeQuotedPrintable(text) : std::nullopt;
}

/// The encoded word at the start of `text`, "=?charset?B or Q?...?=".
std::optional<EncodedWord> ReadEncodedWord(std::string_view text) {
    if (text.substr(0, 2) != "=?") {
        return std::nullopt;
    }
    const std::size_t charsetEnd = text.find('?', 2);
    if (charsetEnd == std::string_view::npos || text.size() - charsetEnd < 3 || text[charsetEnd + 2] != '?') {
        return std::nullopt;
    }
    const std::size_t end = text.find("?=", charsetEnd + 3);
    if (end == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string encoded(text.substr(charsetEnd + 3, end - charsetEnd - 3));
    const char kind = text[charsetEnd + 1];
    std::optional<std::string> bytes;
    if (kind == 'B' || kind == 'b') {
        bytes = DecodeBase64(encoded);
    } else if (kind == 'Q' || kind == 'q') {
        bytes = DecodeQ(encoded);
    }
    if (!bytes) {
        return std::nullopt;
    }
    const std::string charset(text.substr(2, charsetEnd - 2));
    return EncodedWord{charset.substr(0, charset.find('*')), *bytes, end + 2};
}

/// Joins pieces; encoded words that follow one another belong together, the blanks between them go, and one character
/// may be parted between them when they have one character set.
class WordJoiner {
public:
    explicit WordJoiner(std::string field) : m_strField(std::move(field)) {}

    void AddWord(const EncodedWord& word) {
        if (m_bAfterWord && LowerCase(word.charset) == m_strCharset) {
            m_strPending += word.bytes;
        } else {
            const bool dropsBlanks = m_bAfterWord;
            Finish(!dropsBlanks);
            m_strCharset = LowerCase(word.charset);
            m_strPending = word.bytes;
        }
        m_strBlanks.clear();
        m_bAfterWord = true;
    }

    void AddCharacter(char c) {
        if (c == ' ' || c == '\t') {
            m_strBlanks += c;
            return;
        }
        Finish(true);
        m_bAfterWord = false;
        m_strText += c;
    }

    std::string Text() {
        Finish(true);
        return m_strText;
    }

private:
    void Finish(bool keepsBlanks) {
        if (!m_strPending.empty()) {
            const auto text = ToUtf8(m_strPending, m_strCharset);
            if (!text) {
                throw MailFault(m_strField, WhyNotUtf8(m_strCharset));
            }
            m_strText += *text;
        }
        m_strPending.clear();
        m_strText += keepsBlanks ? m_strBlanks : "";
        m_strBlanks.clear();
    }

    const std::string m_strField;
    std::string m_strText;
    std::string m_strPending;  ///< bytes of the words that were read last, in m_strCharset
    std::string m_strCharset;
    std::string m_strBlanks;  ///< that were read last
    bool m_bAfterWord = false;
};

}  // namespace

std::optional<std::string> ToUtf8(const std::string& bytes, const std::string& charset) {
    const std::string name = LowerCase(charset);
    if (name == "utf-8" || name == "utf8" || name == "us-ascii" || name == "ascii") {
        return IsUtf8(bytes) ? std::optional(bytes) : std::nullopt;
    }
    if (name == "iso-8859-1" || name == "latin1") {
        return FromLatin1(bytes);
    }
    return std::nullopt;
}

std::string WhyNotUtf8(const std::string& charset) {
    return "expected text in utf-8, us-ascii or iso-8859-1, and bytes that are of it; found the character "
           "set \"" +
           MakeVisible(charset.substr(0, 60)) + "\"; write the message in UTF-8";
}

std::string DecodeEncodedWords(const std::string& field, const std::string& text) {
    WordJoiner joiner(field);
    for (std::size_t i = 0; i < text.size();) {
        const auto word = ReadEncodedWord(std::string_view(text).substr(i));
        if (word) {
            joiner.AddWord(*word);
            i += word->length;
        } else {
            joiner.AddCharacter(text[i++]);
        }
    }
    return joiner.Text();
}

}  // namespace kvhost
