// The other string functions of the system library. Input: three pieces, of which the first two are parameters.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <memory>
#include <vector>

#include "KvAny.h"
#include "KvCoreHelpers.h"
#include "KvString.h"
#include "support/Check.h"
#include "support/Input.h"

namespace {

using Texts = std::vector<std::string>;

bool IsSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

/// Whether replacing `what` by `with` comes to an end soon: the text gets shorter, or what is put in has nothing of what
/// is looked for.
bool ComesToAnEnd(const std::string& what, const std::string& with) {
    const bool isApart = with.find_first_of(what) == std::string::npos;
    return !what.empty() && (with.size() < what.size() || (isApart && with.size() < 20));
}

void CheckReplacing(const std::string& what, const std::string& with, const std::string& text) {
    if (ComesToAnEnd(what, with)) {
        std::string replaced = text;
        findandreplace(replaced, what, with);
        std::string expected = text;
        for (std::size_t at = expected.find(what); at != std::string::npos; at = expected.find(what)) {
            expected.replace(at, what.size(), with);
        }
        KV_FUZZ_CHECK(replaced == expected);
    }
    const std::string once = KvstringReplaceStr(text, what, with);
    KV_FUZZ_CHECK(!what.empty() || once == text);
    KV_FUZZ_CHECK(what.size() != with.size() || once.size() == text.size());
    const std::string dashes = KvstringReplaceCharAnyOf(text, what, '-');
    KV_FUZZ_CHECK(dashes.size() == text.size());
    KV_FUZZ_CHECK(what.find('-') != std::string::npos || dashes.find_first_of(what) == std::string::npos);
}

void CheckCutting(const std::string& delimiters, const std::string& text) {
    const char separator = delimiters.empty() ? ',' : delimiters[0];
    Texts fields;
    KvstringSplitString(text, separator, fields, false);
    std::string joined = KvstringJoin(fields, std::string(1, separator));
    joined += text.ends_with(separator) ? std::string(1, separator) : "";
    KV_FUZZ_CHECK(joined == text);

    Texts fullFields;
    KvstringSplitString(text, separator, fullFields, true);
    std::erase(fields, "");
    KV_FUZZ_CHECK(fullFields == fields);

    Texts tokens;
    KvstringTokenize(text, delimiters, tokens);
    for (unsigned int i = 0; i < tokens.size(); ++i) {
        KV_FUZZ_CHECK(!tokens[i].empty() && tokens[i].find_first_of(delimiters.c_str()) == std::string::npos);
        // Each token is looked for anew, from the start of the text.
        KV_FUZZ_CHECK(i >= 16 || KvstringNStrTok(text, delimiters, i) == tokens[i]);
    }
    KV_FUZZ_CHECK(KvstringNStrTok(text, delimiters, static_cast<unsigned int>(tokens.size())).empty());
}

void CheckTrimming(const std::string& chars, const std::string& text) {
    std::string trimmed = text;
    KV_FUZZ_CHECK(KvstringTrim(trimmed, chars) == trimmed);
    const auto isTrimmed = [&chars](char c) {
        return chars.empty() ? IsSpace(c) : chars.find(c) != std::string::npos;
    };
    KV_FUZZ_CHECK(trimmed.empty() || (!isTrimmed(trimmed.front()) && !isTrimmed(trimmed.back())));
    KV_FUZZ_CHECK(text.find(trimmed) != std::string::npos);

    std::string inPlace = text.c_str();
    std::string expected = inPlace;
    KvstringTrim(inPlace.data());
    KvstringTrim(expected, "");
    KV_FUZZ_CHECK(std::strcmp(inPlace.c_str(), expected.c_str()) == 0);
    KvstringTrimSpacesAndTabs(inPlace.data());
    KvstringChop(inPlace.data());
}

void CheckPaths(const std::string& directory, const std::string& path) {
    const std::string filtered = KvstringPathFilter(path);
    Texts components;
    KvstringSplitString(filtered, '/', components, false);
    for (std::size_t i = 0; i < components.size(); ++i) {
        KV_FUZZ_CHECK(components[i] != "." && components[i] != "..");
        KV_FUZZ_CHECK(!components[i].empty() || i == 0);
    }
    KV_FUZZ_CHECK(filtered.starts_with('/') == path.starts_with('/'));
    KV_FUZZ_CHECK(KvstringPathFilter(filtered) == filtered);
    KV_FUZZ_CHECK(GetLastSubDirFromPath(path).find('/') == std::string::npos);
    KV_FUZZ_CHECK(std::strchr(GetFileName(path.c_str()), '/') == nullptr);

    std::string left = directory.c_str();
    std::string right = path.c_str();
    const auto out = std::make_unique<char[]>(left.size() + right.size() + 2);
    KvstringCreatePath(out.get(), left.data(), right.data());
    KV_FUZZ_CHECK(KvstringCreatePath(left, right) == out.get());
}

void CheckRendering(std::string text) {
    const int size = static_cast<int>(text.size());
    const std::string safe = KvstringSafeByteString(text.data(), size);
    KV_FUZZ_CHECK(safe.size() <= 4096);
    for (const char c : safe) {
        KV_FUZZ_CHECK(c >= 0x20 && c < 0x7F);
    }
    const std::string escaped = KvstringEscapeString(reinterpret_cast<unsigned char*>(text.data()), size);
    KV_FUZZ_CHECK(escaped.size() <= 4093);
    KV_FUZZ_CHECK(printfToString("%s", text.c_str()).size() <= 6143);
    const std::string start = text.substr(0, 2000).c_str();
    KV_FUZZ_CHECK(printfToString(KvstringEscapePrintfString(start).c_str(), 0) == start);
    const int code = KvstringConvertStrToAscii(text);
    KV_FUZZ_CHECK(code == -1 ? text != KvstringConvertAsciiToStr(-1) || text == "<ffffffff>"
                             : text == KvstringConvertAsciiToStr(code));
}

void CheckCopies(const std::string& text, std::size_t roomSize) {
    const auto room = std::make_unique<char[]>(roomSize + 1);
    const auto length = KvstringMsgCpy2(room.get(), text.c_str(), static_cast<unsigned int>(roomSize));
    KV_FUZZ_CHECK(roomSize == 0 ? length == 0 : length < roomSize);
    KV_FUZZ_CHECK(text.compare(0, length, room.get(), length) == 0);
    KV_FUZZ_CHECK(KvstringCopyMsg(text.c_str(), length) == std::string(room.get(), length));

    const auto bytes = std::make_unique<unsigned char[]>(roomSize);
    const int count = KvHexStrToBytes(text, bytes.get(), static_cast<int>(roomSize));
    KV_FUZZ_CHECK(count == (text.size() / 2 <= roomSize ? static_cast<int>(text.size() / 2) : 0));
    int all = 0;
    KV_FUZZ_CHECK(KvHexStrToBytes(text, all).size() == text.size() / 2);
    KV_FUZZ_CHECK(std::equal(bytes.get(), bytes.get() + count, KvHexStrToBytes(text, all).begin()));
}

void CheckComparing(const std::string& left, const std::string& right) {
    const auto sign = [](int value) { return (value > 0) - (value < 0); };
    const int order = KvstringNoCaseCmp(left.c_str(), right.c_str());
    KV_FUZZ_CHECK(sign(order) == -sign(KvstringNoCaseCmp(right.c_str(), left.c_str())));
    const int folded = std::strcmp(KvstringLowerCase(left).c_str(), KvstringLowerCase(right).c_str());
    KV_FUZZ_CHECK((order == 0) == (folded == 0));
    const char* const found = KvstringFindNoCaseSubstring(left.c_str(), right.c_str());
    const std::size_t at =
        std::string(KvstringUpperCase(left.c_str())).find(KvstringUpperCase(right.c_str()));
    KV_FUZZ_CHECK((found == nullptr) == (at == std::string::npos));
    KV_FUZZ_CHECK(found == nullptr || found == left.c_str() + at);
}

void CheckValues(const std::string& text) {
    const KvAny value(text);
    const int number = value.asInt();
    KV_FUZZ_CHECK(value.asString() == text && KvAny(value.asLong()).asInt() == number);
    KV_FUZZ_CHECK(KvAny(KvintToStr(number)).asInt() == number);
    KV_FUZZ_CHECK(value.asUInt() == value.asUInt() && value.asBool() == value.asBool());
    KV_FUZZ_CHECK(KvAny(KvuintToStr(value.asUInt())).asUInt() == value.asUInt());
    static_cast<void>(value.asDouble());
    static_cast<void>(value.asChar());
    KV_FUZZ_CHECK(KvdeduceDataType(text) == 0 || !text.empty());
    KV_FUZZ_CHECK(KvstringIsNumeric(KvstringCleanNumeric(text)));
    static_cast<void>(KvHexStrToUInt(text));
    const std::string literal = KvstringSQLEncode(text);
    KV_FUZZ_CHECK(std::count(literal.begin(), literal.end(), '\'') % 2 == 0);
    KV_FUZZ_CHECK(KvstringSQLLikeEncode(text).size() >= text.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kvfuzz::Input input(data, size);
    const std::string first = input.Piece();
    const std::string second = input.Piece();
    const std::string text = input.Rest();
    CheckReplacing(first, second, text);
    CheckCutting(first, text);
    CheckTrimming(first, text);
    CheckPaths(first, text);
    CheckRendering(text);
    CheckCopies(text, second.size());
    CheckComparing(text, first);
    CheckValues(text);
    return 0;
}
