#include "VisibleText.h"

#include <algorithm>
#include <cstdio>

namespace kvhost {

namespace {

unsigned char ByteAt(std::string_view text, std::size_t index) {
    return static_cast<unsigned char>(text[index]);
}

bool IsContinuation(unsigned char byte) {
    return (byte & 0xC0U) == 0x80U;
}

/// Length that a UTF-8 lead byte announces; 0 for a byte that cannot lead (RFC 3629).
std::size_t AnnouncedLength(unsigned char lead) {
    if (lead < 0x80) {
        return 1;
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        return 2;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        return 3;
    }
    return lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
}

/// The second byte carries the limits that rule out overlong forms, surrogates and values above U+10FFFF.
bool SecondByteFits(unsigned char lead, unsigned char second) {
    switch (lead) {
        case 0xE0:
            return second >= 0xA0;
        case 0xED:
            return second <= 0x9F;
        case 0xF0:
            return second >= 0x90;
        case 0xF4:
            return second <= 0x8F;
        default:
            return true;
    }
}

/// Length of the valid UTF-8 sequence at the start of `rest`; 0 when there is none.
std::size_t SequenceLength(std::string_view rest) {
    const std::size_t length = AnnouncedLength(ByteAt(rest, 0));
    if (length < 2) {
        return length;
    }
    if (rest.size() < length || !SecondByteFits(ByteAt(rest, 0), ByteAt(rest, 1))) {
        return 0;
    }
    const auto tail = rest.substr(1, length - 1);
    const bool whole = std::all_of(tail.begin(), tail.end(),
                                   [](char c) { return IsContinuation(static_cast<unsigned char>(c)); });
    return whole ? length : 0;
}

/// U+0080 to U+009F: control characters that terminals act upon.
bool IsC1Control(std::string_view sequence) {
    return sequence.size() == 2 && ByteAt(sequence, 0) == 0xC2 && ByteAt(sequence, 1) < 0xA0;
}

std::string WrittenOut(unsigned char byte) {
    switch (byte) {
        case '\0':
            return "<NUL>";
        case '\t':
            return "<TAB>";
        case '\n':
            return "<LF>";
        case '\r':
            return "<CR>";
        case 0x1B:
            return "<ESC>";
        default:
            break;
    }
    char hex[8];
    std::snprintf(hex, sizeof(hex), "<%02X>", static_cast<unsigned>(byte));
    return hex;
}

bool IsControl(unsigned char byte) {
    return byte < 0x20 || byte == 0x7F;
}

bool IsPrintable(std::string_view sequence) {
    return sequence.size() == 1 ? !IsControl(ByteAt(sequence, 0)) : !IsC1Control(sequence);
}

}  // namespace

std::string MakeVisible(std::string_view text) {
    std::string visible;
    visible.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = SequenceLength(text);
        if (length != 0 && IsPrintable(text.substr(0, length))) {
            visible += text.substr(0, length);
            text.remove_prefix(length);
        } else {
            visible += WrittenOut(ByteAt(text, 0));
            text.remove_prefix(1);
        }
    }
    return visible;
}

std::string StripLineEnd(std::string_view text) {
    const std::size_t last = text.find_last_not_of("\r\n");
    return std::string(text.substr(0, last == std::string_view::npos ? 0 : last + 1));
}

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = SequenceLength(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

std::size_t CountCodePoints(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return !IsContinuation(static_cast<unsigned char>(c)); }));
}

}  // namespace kvhost
