// What the engine takes from a reply to EHLO, and from a second one. Input: "c" for credentials, two replies.
#include "KvEmailDriver.h"
#include "support/Check.h"
#include "support/Input.h"

namespace {

struct Offer {
    bool startTls = false;
    bool login = false;
    bool plain = false;
};

bool Has(const std::string& line, const char* word) {
    return line.find(word) != std::string::npos;
}

Offer ReadOffer(const std::string& reply) {
    Offer offer;
    for (std::size_t at = 0; at < reply.size();) {
        const std::size_t end = std::min(reply.find('\n', at), reply.size());
        const std::string line = reply.substr(at, end - at);
        at = end + 1;
        if (Has(line, "STARTTLS")) {
            offer.startTls = true;
        } else if (Has(line, "AUTH")) {
            offer.login = offer.login || Has(line, "LOGIN");
            offer.plain = offer.plain || Has(line, "PLAIN");
        }
    }
    return offer;
}

void Check(const KvEmailDriver::Job& job, const Offer& offer) {
    const bool hasCredentials = !job.strUser.empty() && !job.strPassword.empty();
    KV_FUZZ_CHECK(job.bStartTLS == offer.startTls);
    KV_FUZZ_CHECK(job.bAuthLogin == (hasCredentials && offer.login));
    KV_FUZZ_CHECK(job.bAuthPlain == (hasCredentials && offer.plain));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kvfuzz::Input input(data, size);
    static KvEmailDriver engine(nullptr, "", "", "");
    KvEmailDriver::Job job;
    const std::string credentials = input.Piece();
    job.strUser = Has(credentials, "u") || Has(credentials, "c") ? "user" : "";
    job.strPassword = Has(credentials, "c") ? "password" : "";

    const std::string first = input.Piece();
    engine.UpdateSupportedMethods(job, first);
    Check(job, ReadOffer(first));
    // What two replies offer adds up.
    const std::string second = input.Rest();
    engine.UpdateSupportedMethods(job, second);
    Check(job, ReadOffer(first + "\n" + second));
    return 0;
}
