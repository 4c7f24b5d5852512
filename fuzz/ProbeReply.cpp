// Replies of a server that is looked at by "kvhost carrier test": taken one by one off whatever it sends.
#include "ProbeReply.h"

#include "ProbeError.h"
#include "support/Check.h"
#include "support/Input.h"

namespace {

void CheckReply(const kvhost::ProbeReply& reply, const std::string& taken) {
    KV_FUZZ_CHECK(reply.code >= 200 && reply.code <= 599 && reply.bytes == taken.size());
    KV_FUZZ_CHECK(reply.IsRefusal() == (reply.code >= 400) && taken.back() == '\n');
    std::string lines;
    for (std::size_t i = 0; i < reply.lines.size(); ++i) {
        const std::string& line = reply.lines[i];
        const bool goesOn = line.size() > 3 && line[3] == '-';
        KV_FUZZ_CHECK(line.size() >= 3 && line.find('\n') == std::string::npos);
        KV_FUZZ_CHECK(goesOn == (i + 1 < reply.lines.size()));
        lines += line + "\n";
    }
    KV_FUZZ_CHECK(reply.code == std::stoi(reply.lines.back().substr(0, 3)));
    KV_FUZZ_CHECK(lines.size() <= taken.size() && reply.Text().size() >= lines.size() - reply.lines.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string input = kvfuzz::Input(data, size).Rest();
    for (;;) {
        const std::string before = input;
        try {
            const auto reply = kvhost::TakeReply(input);
            if (!reply) {
                KV_FUZZ_CHECK(input == before);
                return 0;
            }
            KV_FUZZ_CHECK(before.ends_with(input) && input.size() < before.size());
            CheckReply(*reply, before.substr(0, before.size() - input.size()));
        } catch (const kvhost::ProbeError&) {
            KV_FUZZ_CHECK(input == before);
            return 0;
        }
    }
}
