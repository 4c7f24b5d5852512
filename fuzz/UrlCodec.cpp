// URL and name escapes of the system library.
#include <cctype>
#include <cstring>
#include <memory>

#include "KvsysCodec.h"
#include "support/Check.h"
#include "support/Input.h"

namespace {

bool IsPlain(char c, const char* more) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x80 && byte != 0 && (std::isalnum(byte) != 0 || std::strchr(more, c) != nullptr);
}

void CheckUrl(const std::string& text) {
    const std::string encoded = KvsysCodec::EncodeUrl(text);
    for (const char c : encoded) {
        KV_FUZZ_CHECK(IsPlain(c, "_+%"));
    }
    KV_FUZZ_CHECK(KvsysCodec::DecodeUrl(encoded) == text);
    const std::string decoded = KvsysCodec::DecodeUrl(text);
    KV_FUZZ_CHECK(decoded.size() <= text.size());
    const bool isCut = text.substr(0, text.find('\0')).find('%') == std::string::npos;
    KV_FUZZ_CHECK(!isCut || decoded.size() == std::strlen(text.c_str()));
}

/// Bytes of 0x80 and above do not come back.
std::string WithoutHighBytes(std::string text) {
    for (char& c : text) {
        c = static_cast<unsigned char>(c) < 0x80 ? c : '\xff';
    }
    return text;
}

void CheckName(const std::string& text) {
    const std::string encoded = KvsysCodec::EncodeName(text);
    for (const char c : encoded) {
        KV_FUZZ_CHECK(IsPlain(c, "%"));
    }
    KV_FUZZ_CHECK(KvsysCodec::EncodeFileName(text) == encoded);
    KV_FUZZ_CHECK(KvsysCodec::DecodeName(encoded) == WithoutHighBytes(text));
    KV_FUZZ_CHECK(KvsysCodec::DecodeFileName(text) == KvsysCodec::DecodeName(text));
    KV_FUZZ_CHECK(KvsysCodec::DecodeName(text).size() <= text.size());
}

/// The result fits every buffer, ends in it, and of a larger buffer's result it is the beginning.
void CheckHttpForm(const std::string& text, std::size_t roomSize) {
    const auto room = std::make_unique<char[]>(roomSize + 1);
    std::memset(room.get(), 'x', roomSize + 1);
    KvsysCodec::KvhttpStrEncode(room.get(), static_cast<int>(roomSize), text.c_str());
    KV_FUZZ_CHECK(room[roomSize] == 'x');
    if (roomSize < 5 || text.c_str()[0] == '\0') {
        KV_FUZZ_CHECK(room[0] == 'x');
        return;
    }
    const std::string short_(room.get());
    KV_FUZZ_CHECK(short_.size() < roomSize);
    for (const char c : short_) {
        KV_FUZZ_CHECK(IsPlain(c, "/_.%"));
    }
    std::string whole(6 * text.size() + 6, '\0');
    KvsysCodec::KvhttpStrEncode(whole.data(), static_cast<int>(whole.size()), text.c_str());
    KV_FUZZ_CHECK(whole.compare(0, short_.size(), short_) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = kvfuzz::Input(data, size).Rest();
    CheckUrl(text);
    CheckName(text);
    CheckHttpForm(text, size == 0 ? 0 : data[0]);
    CheckHttpForm(text, text.size() + 5);
    return 0;
}
