// JSON escapes, backslashes, line marks and filters of the system library.
#include <algorithm>
#include <cstring>

#include "KvsysCodec.h"
#include "support/Check.h"
#include "support/Input.h"

namespace {

std::size_t Count(const std::string& text, char c) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), c));
}

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

/// Between quotation marks it is one JSON string: no quotation mark ends it early, no backslash opens its end.
void CheckIsOneString(const std::string& escaped) {
    for (std::size_t i = 0; i < escaped.size(); ++i) {
        KV_FUZZ_CHECK(escaped[i] != '"' && escaped[i] != '\n' && escaped[i] != '\r' && escaped[i] != '\t');
        if (escaped[i] == '\\') {
            ++i;
            KV_FUZZ_CHECK(i < escaped.size() && std::strchr("\\\"nrt", escaped[i]) != nullptr);
        }
    }
}

void CheckJson(const std::string& text) {
    const std::string escaped = KvsysCodec::EscapeJsonString(text);
    CheckIsOneString(escaped);
    KV_FUZZ_CHECK(KvsysCodec::UnescapeJsonString(escaped) == text);
    KV_FUZZ_CHECK(KvsysCodec::UnescapeJsonString(text).size() <= text.size());
    KV_FUZZ_CHECK(KvsysCodec::EscapeInternalJSON(text).size() >= text.size());
    const std::string brackets = KvsysCodec::EncodeUnicodeCharacters(text);
    KV_FUZZ_CHECK(brackets.size() <= text.size());
}

void CheckBackslashes(const std::string& text) {
    const std::string doubled = KvsysCodec::EscapeBackslash(text);
    KV_FUZZ_CHECK(doubled.size() == text.size() + Count(text, '\\'));
    KV_FUZZ_CHECK(Count(doubled, '\\') == 2 * Count(text, '\\'));
    const std::string single = KvsysCodec::UnescapeBackslash(text);
    KV_FUZZ_CHECK(!Has(single, "\\\\") && single.size() <= text.size());
    KV_FUZZ_CHECK(Has(text, "\\\\") || single == text);
}

void CheckLineMarks(const std::string& text) {
    const std::string marked = KvsysCodec::EncodeMultiLineData(text);
    KV_FUZZ_CHECK(Count(marked, '\r') == 0 && Count(marked, '\n') == 0);
    const bool hasMarks = Has(text, "<CR>") || Has(text, "<LF>");
    KV_FUZZ_CHECK(hasMarks || KvsysCodec::DecodeMultiLineData(marked) == text);
    const std::string unmarked = KvsysCodec::DecodeMultiLineData(text);
    KV_FUZZ_CHECK(unmarked.size() <= text.size());
}

void CheckFilters(const std::string& text) {
    const std::string spoken = KvsysCodec::EscapeTTSData(text);
    KV_FUZZ_CHECK(spoken.find_first_of("'\"\r\n") == std::string::npos);
    const std::string filter = KvsysCodec::EncodeDBFilterInput(text);
    KV_FUZZ_CHECK(filter.size() == text.size() + Count(text, '_') + Count(text, '\\'));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = kvfuzz::Input(data, size).Rest();
    CheckJson(text);
    CheckBackslashes(text);
    CheckLineMarks(text);
    CheckFilters(text);
    return 0;
}
