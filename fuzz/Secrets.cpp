// What masks secrets in logs. Input: user, password, then text: its lines are masked one by one.
#include "AuthExchangeMask.h"
#include "Base64.h"
#include "KvCoreHelpers.h"
#include "SecretMask.h"
#include "VisibleText.h"
#include "support/Check.h"
#include "support/Input.h"

namespace {

constexpr const char* kMasked = "[masked]";

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

void CheckMask(const kvhost::SecretMask& mask, const std::string& user, const std::string& password,
               const std::string& text) {
    const std::string masked = mask.Apply(text);
    if (password.empty()) {
        KV_FUZZ_CHECK(masked == text);
        return;
    }
    // What the mask puts in may itself look like a password that is made of its letters.
    const bool mayBePutIn = password.find_first_of(kMasked) != std::string::npos;
    KV_FUZZ_CHECK(mayBePutIn || !Has(masked, password));
    KV_FUZZ_CHECK(Has(mask.Apply(text + password), kMasked));
    KV_FUZZ_CHECK(Has(mask.Apply(kvhost::Base64(password)), kMasked));
    const std::string plain = std::string(1, '\0') + user + std::string(1, '\0') + password;
    KV_FUZZ_CHECK(mask.Apply(kvhost::Base64(plain)) == kMasked || mayBePutIn || password.size() < 4 ||
                  Has(mask.Apply(kvhost::Base64(plain)), kMasked));
    const std::string key = mask.Apply("{1}-{server}-{0}-{" + user + "}-{" + password + "}");
    KV_FUZZ_CHECK(mayBePutIn || !Has(key, password));
    if (password.size() >= 4) {
        KV_FUZZ_CHECK(Has(mask.Apply(kvhost::Base64(text + password + user)), kMasked));
    }
}

/// After "AUTH" nothing that is sent is shown, until a reply that asks for no more.
void CheckExchange(const std::string& password, const std::string& text) {
    kvhost::AuthExchangeMask mask;
    mask.Apply("<= AUTH LOGIN<CR><LF>");
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        const std::string reply = text.substr(at, end - at);
        at = end + 1;
        const bool ends = !reply.empty() && reply[0] >= '0' && reply[0] <= '9' && reply[0] != '3';
        KV_FUZZ_CHECK(mask.Apply("=> " + reply) == "=> " + reply);
        if (ends) {
            KV_FUZZ_CHECK(mask.Apply("<= QUIT" + password) == "<= QUIT" + password);
            return;
        }
        KV_FUZZ_CHECK(mask.Apply("<= " + password) == "<= [masked]");
    }
}

void CheckVisible(const std::string& text) {
    const std::string visible = kvhost::MakeVisible(text);
    KV_FUZZ_CHECK(kvhost::MakeVisible(visible) == visible && kvhost::IsUtf8(visible));
    for (const char c : visible) {
        KV_FUZZ_CHECK(static_cast<unsigned char>(c) >= 0x20 && c != 0x7F);
    }
    KV_FUZZ_CHECK(kvhost::CountCodePoints(visible) <= visible.size());
    const std::string stripped = kvhost::StripLineEnd(text);
    KV_FUZZ_CHECK(stripped.empty() || (stripped.back() != '\n' && stripped.back() != '\r'));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kvfuzz::Input input(data, size);
    const std::string user = input.Piece();
    const std::string password = input.Piece();
    const std::string text = input.Rest();
    CheckMask(kvhost::SecretMask({{user, password}}), user, password, text);
    CheckExchange(password, text);
    CheckVisible(text);
    return 0;
}
