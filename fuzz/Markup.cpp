// XML, HTML and web-form codecs of the system library. Its process-wide tables stay whole: no call cuts them.
#include "KvsysCodec.h"
#include "support/Check.h"
#include "support/Input.h"

namespace {

bool Has(const std::string& text, const std::string& any) {
    return text.find_first_of(any) != std::string::npos;
}

void CheckXml(const std::string& text) {
    const std::string encoded = KvsysCodec::EncodeXmlData(text, true);
    KV_FUZZ_CHECK(!Has(encoded, "<>'\"\t\n\r"));
    // An ampersand is decoded first, so that what it was a part of is decoded once more.
    KV_FUZZ_CHECK(Has(text, "&") || KvsysCodec::DecodeXmlData(encoded) == text);
    KV_FUZZ_CHECK(KvsysCodec::DecodeXmlData(text).size() <= text.size());

    const std::string kept = KvsysCodec::EncodeXML(text, false);
    const std::string marked = KvsysCodec::EncodeXML(text, true);
    KV_FUZZ_CHECK(!Has(kept, "<>'\"") && !Has(marked, "<>'\"\t\n\r"));
    KV_FUZZ_CHECK(kept.find('\0') == std::string::npos && marked.find('\0') == std::string::npos);
    const std::string seen = text.substr(0, text.find('\0'));
    KV_FUZZ_CHECK(Has(seen, "&") || KvsysCodec::DecodeXmlData(kept) == seen);
}

void CheckWebForm(const std::string& text) {
    for (const bool keepSpaces : {false, true}) {
        const std::string encoded = KvsysCodec::EncodeWebInputData(text, keepSpaces);
        KV_FUZZ_CHECK(!Has(encoded, keepSpaces ? "<>'\"|\t\n\r" : "<>'\"|\t\n\r "));
        KV_FUZZ_CHECK(KvsysCodec::DecodeWebInputData(encoded, true) == text);
        KV_FUZZ_CHECK(KvsysCodec::EncodeWebInputAndEscapeBackSlash(text, keepSpaces) ==
                      KvsysCodec::EscapeBackslash(encoded));
    }
    KV_FUZZ_CHECK(KvsysCodec::DecodeWebInputData(text, true).size() <= text.size());
}

void CheckHtml(const std::string& text) {
    const std::string encoded = KvsysCodec::EncodeHTML(text, true);
    KV_FUZZ_CHECK(!Has(encoded, "\"\n"));
    KV_FUZZ_CHECK(encoded.find("&#x0A;") == std::string::npos);
    const std::string lines = KvsysCodec::EncodeNewLineCharacters(text);
    KV_FUZZ_CHECK(!Has(lines, "\n"));
    const bool isPlain = text.find("<br>") == std::string::npos && text.find("\r\n") == std::string::npos;
    KV_FUZZ_CHECK(!isPlain || KvsysCodec::DecodeHTML(lines) == text);
    KV_FUZZ_CHECK(KvsysCodec::DecodeHTML(text).find("<br>") == std::string::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = kvfuzz::Input(data, size).Rest();
    CheckXml(text);
    CheckWebForm(text);
    CheckHtml(text);
    return 0;
}
