// The MIME text of any mail: sender, subject, text.
#include <exception>

#include "KvMimeMessage.h"
#include "support/Check.h"
#include "support/Input.h"

namespace {

constexpr const char* kBoundary = "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon";

std::string WithCrLf(const std::string& text) {
    std::string converted;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) {
            converted += '\r';
        }
        converted += text[i];
    }
    return converted;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kvfuzz::Input input(data, size);
    const std::string from = input.Piece();
    const std::string subject = input.Piece();
    const std::string body = input.Rest();
    const std::string message = KvMimeMessageText(from, subject, body, {});
    KV_FUZZ_CHECK(message == KvMimeMessageText(from, subject, body, {}));
    const std::string part = "\r\n\r\n" + WithCrLf(body) + "\r\n" + kBoundary + "--\r\n";
    KV_FUZZ_CHECK(message.ends_with(part));
    KV_FUZZ_CHECK(message.find(std::string(kBoundary) + "\r\n") != std::string::npos);
    return 0;
}
