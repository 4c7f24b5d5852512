#include <algorithm>
#include <atomic>

#include "KvsysCodec.h"
#include "KvsysCodecParts.h"

namespace {

struct Entity {
    char character;
    const char* encoded;
};

constexpr Entity kXmlEntities[] = {
    {'&', "&amp;"},  {'>', "&gt;"},   {'<', "&lt;"},   {'\'', "&apos;"},
    {'"', "&quot;"}, {'\t', "&#x9;"}, {'\n', "&#xa;"}, {'\r', "&#xd;"},
};
constexpr std::size_t kXmlEntitiesOfTheShortSet = 3;

constexpr Entity kWebInputEntities[] = {
    {'&', "&amp;"},  {'>', "&gt;"},    {'<', "&lt;"},    {'\'', "&#x27;"}, {'"', "&quot;"},
    {'|', "&#x7C;"}, {'\t', "&#x09;"}, {'\r', "&#x0D;"}, {'\n', "&#x0A;"}, {' ', "&nbsp;"},
};
constexpr std::size_t kWebInputEntitiesWithoutSpace = std::size(kWebInputEntities) - 1;

constexpr Entity kDecodedBeforeNbsp[] = {
    {'>', "&gt;"},   {'<', "&lt;"},    {'\'', "&#x27;"}, {'"', "&quot;"},
    {'|', "&#x7C;"}, {'\t', "&#x09;"}, {'\r', "&#x0D;"}, {'\n', "&#x0A;"},
};

// The process-wide tables' only changeable parts. Each changes once and holds nothing that other data hangs
// on.
std::atomic<std::size_t> g_nXmlEntitiesInUse{std::size(kXmlEntities)};
std::atomic<bool> g_bDecodesNbsp{true};

/// `text` with every character of the first `rows` rows of `table` replaced by its entity.
std::string EncodeByTable(const std::string& text, const Entity* table, std::size_t rows) {
    std::string result;
    for (const char c : text) {
        const Entity* end = table + rows;
        const Entity* found =
            std::find_if(table, end, [c](const Entity& entity) { return entity.character == c; });
        if (found == end) {
            result += c;
        } else {
            result += found->encoded;
        }
    }
    return result;
}

std::string Decode(const std::string& text, const Entity& entity) {
    return KvsysReplaceEach(text, entity.encoded, std::string(1, entity.character));
}

/// The reference that EncodeXML() gives `text[at]`, a white-space character other than a space.
std::string XmlLineForm(const std::string& text, std::size_t at) {
    switch (text[at]) {
        case '\t':
            return "&#xA;";
        case '\r':
            return "&#xD;";
        default:
            break;
    }
    const bool followsCr = at > 0 && text[at - 1] == '\r';
    const bool precedesCr = at + 1 < text.size() && text[at + 1] == '\r';
    return followsCr || precedesCr ? "" : "&#xD;";
}

std::string XmlForm(const std::string& text, std::size_t at, bool encodeWhitespace) {
    switch (text[at]) {
        case '&':
            return "&amp;";
        case '>':
            return "&gt;";
        case '<':
            return "&lt;";
        case '\'':
            return "&apos;";
        case '"':
            return "&quot;";
        case '\t':
        case '\r':
        case '\n':
            return encodeWhitespace ? XmlLineForm(text, at) : std::string(1, text[at]);
        default:
            return std::string(1, text[at]);
    }
}

}  // namespace

std::string KvsysCodec::EncodeXML(const std::string& text, bool encodeWhitespace) {
    std::string result;
    for (std::size_t i = 0; i < text.size() && text[i] != '\0'; ++i) {
        result += XmlForm(text, i, encodeWhitespace);
    }
    return result;
}

std::string KvsysCodec::EncodeXmlData(const std::string& text, bool fullSet) {
    if (!fullSet) {
        g_nXmlEntitiesInUse = kXmlEntitiesOfTheShortSet;
    }
    return EncodeByTable(text, kXmlEntities, g_nXmlEntitiesInUse);
}

std::string KvsysCodec::DecodeXmlData(const std::string& text) {
    std::string result = text;
    for (const Entity& entity : kXmlEntities) {
        result = Decode(result, entity);
    }
    return result;
}

std::string KvsysCodec::EncodeWebInputData(const std::string& text, bool keepSpaces) {
    return EncodeByTable(text, kWebInputEntities,
                         keepSpaces ? kWebInputEntitiesWithoutSpace : std::size(kWebInputEntities));
}

std::string KvsysCodec::DecodeWebInputData(const std::string& text, bool decodeNbsp) {
    if (!decodeNbsp) {
        g_bDecodesNbsp = false;
    }
    std::string result = text;
    for (const Entity& entity : kDecodedBeforeNbsp) {
        result = Decode(result, entity);
    }
    if (g_bDecodesNbsp) {
        result = Decode(result, {' ', "&nbsp;"});
    }
    return Decode(result, {'&', "&amp;"});
}

std::string KvsysCodec::EncodeWebInputAndEscapeBackSlash(const std::string& text, bool keepSpaces) {
    return EscapeBackslash(EncodeWebInputData(text, keepSpaces));
}

std::string KvsysCodec::EncodeHTML(const std::string& text, bool convertEncodedLF) {
    std::string result = EncodeNewLineCharacters(text);
    if (convertEncodedLF) {
        result = KvsysReplaceEach(result, "&#x0A;", "<br>");
    }
    return KvsysReplaceEach(result, "\"", "&quot;");
}

std::string KvsysCodec::DecodeHTML(const std::string& text) {
    return KvsysReplaceEach(text, "<br>", "\n");
}

std::string KvsysCodec::EncodeNewLineCharacters(const std::string& text) {
    return KvsysReplaceEach(KvsysReplaceEach(text, "\r\n", "<br>"), "\n", "<br>");
}
