#include "KvsysCodec.h"
#include "KvsysCodecParts.h"

namespace {

/// What the letter behind a backslash stands for in a JSON string; NUL when it is none that is undone here.
char UnescapedJson(char letter) {
    switch (letter) {
        case 'n':
            return '\n';
        case 'r':
            return '\r';
        case 't':
            return '\t';
        case '"':
        case '\\':
            return letter;
        default:
            return '\0';
    }
}

/// `text` with `mark` put before every character of `characters`.
std::string MarkEach(const std::string& text, const std::string& characters, char mark) {
    std::string result;
    for (const char c : text) {
        if (characters.find(c) != std::string::npos) {
            result += mark;
        }
        result += c;
    }
    return result;
}

}  // namespace

std::string KvsysCodec::EncodeMultiLineData(const std::string& text) {
    return KvsysReplaceEach(KvsysReplaceEach(text, "\r", "<CR>"), "\n", "<LF>");
}

std::string KvsysCodec::DecodeMultiLineData(const std::string& text) {
    return KvsysReplaceEach(KvsysReplaceEach(text, "<CR>", "\r"), "<LF>", "\n");
}

std::string KvsysCodec::EscapeJsonString(const std::string& text) {
    std::string result = KvsysReplaceEach(text, "\\", "\\\\");
    result = KvsysReplaceEach(result, "\"", "\\\"");
    result = KvsysReplaceEach(result, "\n", "\\n");
    result = KvsysReplaceEach(result, "\r", "\\r");
    return KvsysReplaceEach(result, "\t", "\\t");
}

std::string KvsysCodec::UnescapeJsonString(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool mayBeEscape = text[i] == '\\' && i + 1 < text.size();
        const char unescaped = mayBeEscape ? UnescapedJson(text[i + 1]) : '\0';
        if (unescaped == '\0') {
            result += text[i];
        } else {
            result += unescaped;
            ++i;
        }
    }
    return result;
}

std::string KvsysCodec::EscapeInternalJSON(const std::string& text) {
    return KvsysReplaceEach(KvsysReplaceEach(text, "\\\\", "\\\\\\\\"), "\\\"", "\\\\\\\"");
}

std::string KvsysCodec::EncodeUnicodeCharacters(const std::string& text) {
    return KvsysReplaceEach(KvsysReplaceEach(text, "\\u003c", "<"), "\\u003e", ">");
}

std::string KvsysCodec::EscapeBackslash(const std::string& text) {
    return MarkEach(text, "\\", '\\');
}

std::string KvsysCodec::UnescapeBackslash(const std::string& text) {
    constexpr std::size_t kReplacedWidth = 4;
    std::string result = text;
    for (std::size_t at = result.find("\\\\"); at != std::string::npos; at = result.find("\\\\")) {
        result.replace(at, kReplacedWidth, 1, '\\');
    }
    return result;
}

std::string KvsysCodec::EscapeTTSData(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (std::string("'\"\r\n").find(c) == std::string::npos) {
            result += c;
        }
    }
    return result;
}

std::string KvsysCodec::EncodeDBFilterInput(const std::string& text) {
    return MarkEach(text, "_\\", '\\');
}
