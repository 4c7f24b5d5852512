// The base64 of the system library: both directions, and what any text decodes to.
#include <memory>

#include "KvsysCodec.h"
#include "support/Check.h"
#include "support/Input.h"

namespace {

bool IsOfTheAlphabet(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

bool IsWhiteSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

struct Decoded {
    bool isValid;
    std::string bytes;
};

/// Decodes in a buffer of exactly the size that is asked for, so that a byte too many is noticed.
Decoded Decode(const std::string& text) {
    const auto buffer = std::make_unique<unsigned char[]>(text.size() + 1);
    std::copy(text.begin(), text.end(), buffer.get());
    int length = static_cast<int>(text.size());
    const bool isValid = KvsysCodec::DecodeBase64(buffer.get(), length);
    KV_FUZZ_CHECK(length >= 0 && static_cast<std::size_t>(length) <= text.size() / 4 * 3 + 2);
    KV_FUZZ_CHECK(text.empty() || buffer[static_cast<std::size_t>(length)] == '\0');
    return {isValid, std::string(buffer.get(), buffer.get() + length)};
}

void CheckForm(const std::string& encoded, bool lineBreaks) {
    std::size_t column = 0;
    for (std::size_t i = 0; i < encoded.size(); ++i) {
        if (encoded[i] == '\r') {
            KV_FUZZ_CHECK(lineBreaks && encoded.compare(i, 2, "\r\n") == 0);
            KV_FUZZ_CHECK(column == 76 || i + 2 == encoded.size());
            column = 0;
            ++i;
            continue;
        }
        ++column;
        KV_FUZZ_CHECK(IsOfTheAlphabet(encoded[i]) || encoded[i] == '=');
    }
    KV_FUZZ_CHECK(lineBreaks ? column == 0 : column % 4 == 0);
}

void RoundTrip(std::string bytes, bool lineBreaks) {
    std::string encoded = "what was here before";
    const bool isEncoded = KvsysCodec::EncodeBase64(reinterpret_cast<unsigned char*>(bytes.data()),
                                                    static_cast<int>(bytes.size()), encoded, lineBreaks);
    KV_FUZZ_CHECK(isEncoded == !bytes.empty());
    CheckForm(encoded, lineBreaks);
    const Decoded decoded = Decode(encoded);
    KV_FUZZ_CHECK(decoded.isValid && decoded.bytes == bytes);
    if (lineBreaks) {
        KV_FUZZ_CHECK(KvsysCodec::EncodeBase64(reinterpret_cast<unsigned char*>(bytes.data()),
                                               static_cast<int>(bytes.size()), false) == encoded);
    }
}

/// A text that decodes without a complaint has nothing in it but base64 and white space, up to its padding.
void CheckVerdict(const std::string& text, bool isValid) {
    std::size_t values = 0;
    bool isClean = true;
    for (std::size_t i = 0; i < text.size() && text[i] != '='; ++i) {
        const bool isValue = IsOfTheAlphabet(text[i]);
        values += isValue ? 1 : 0;
        isClean = isClean && (isValue || IsWhiteSpace(text[i]));
    }
    KV_FUZZ_CHECK(isValid == (isClean && values % 4 != 1));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = kvfuzz::Input(data, size).Rest();
    RoundTrip(text, true);
    RoundTrip(text, false);
    CheckVerdict(text, Decode(text).isValid);
    return 0;
}
