// The host's base64 and quoted-printable: both directions, and against the decoder of the system library.
#include <algorithm>

#include "Base64.h"
#include "KvsysCodec.h"
#include "TransferDecoding.h"
#include "support/Check.h"
#include "support/Input.h"

namespace {

std::string EncodedBySystem(std::string bytes) {
    std::string encoded;
    KvsysCodec::EncodeBase64(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(bytes.size()),
                             encoded, false);
    return encoded;
}

void RoundTrip(const std::string& bytes) {
    const std::string encoded = kvhost::Base64(bytes);
    KV_FUZZ_CHECK(encoded.size() == (bytes.size() + 2) / 3 * 4);
    KV_FUZZ_CHECK(encoded == EncodedBySystem(bytes));
    KV_FUZZ_CHECK(kvhost::DecodeBase64(encoded) == bytes);
    std::string folded;
    for (std::size_t i = 0; i < encoded.size(); ++i) {
        folded += (i % 5 == 0 ? "\r\n " : "") + encoded.substr(i, 1);
    }
    KV_FUZZ_CHECK(kvhost::DecodeBase64(folded) == bytes);
    KV_FUZZ_CHECK(!kvhost::DecodeBase64(encoded + "A"));
    KV_FUZZ_CHECK(!kvhost::DecodeBase64("-" + encoded));
}

/// What the host takes, the system library takes too, as the same bytes.
void CheckAnyText(const std::string& text) {
    const auto decoded = kvhost::DecodeBase64(text);
    if (!decoded) {
        return;
    }
    KV_FUZZ_CHECK(decoded->size() <= text.size() / 4 * 3);
    std::string buffer = text;
    int length = static_cast<int>(buffer.size());
    KV_FUZZ_CHECK(KvsysCodec::DecodeBase64(reinterpret_cast<unsigned char*>(buffer.data()), length));
    KV_FUZZ_CHECK(buffer.substr(0, static_cast<std::size_t>(length)) == *decoded);
}

/// Every byte written as an escape, in lines that go on.
std::string QuotedPrintable(const std::string& bytes) {
    static constexpr const char* kDigits = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        text +=
            std::string("=") + kDigits[byte >> 4U] + kDigits[byte & 15U] + (i % 20 == 19 ? "= \t\r\n" : "");
    }
    return text;
}

void CheckQuotedPrintable(const std::string& text) {
    KV_FUZZ_CHECK(kvhost::DecodeQuotedPrintable(QuotedPrintable(text)) == text);
    const auto decoded = kvhost::DecodeQuotedPrintable(text);
    KV_FUZZ_CHECK(!decoded || decoded->size() <= text.size());
    const bool isPlain = text.find_first_of("= \t\r") == std::string::npos;
    KV_FUZZ_CHECK(!isPlain || decoded == text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = kvfuzz::Input(data, size).Rest();
    RoundTrip(text);
    CheckAnyText(text);
    CheckQuotedPrintable(text);
    return 0;
}
