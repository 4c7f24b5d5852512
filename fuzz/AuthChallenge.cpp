// AUTH LOGIN and AUTH PLAIN against a server that asks for anything: the engine answers the two right questions only.
// Input: "p" for PLAIN, else LOGIN; then the script of the server.
#include <cstring>
#include <stdexcept>

#include "KvEmailDriver.h"
#include "KvioException.h"
#include "support/Check.h"
#include "support/FakeServer.h"
#include "support/Input.h"

namespace {

using Event = kvfuzz::FakeServer::Event;

/// An engine that is connected, and offered both methods.
class Engine : public KvEmailDriver {
public:
    Engine() : KvEmailDriver(nullptr, "", "", "") {
        m_objSocket.Connect("127.0.0.1", 25, KvioSocket::SOCKET_TCP);
        m_job.strUser = "user";
        m_job.strPassword = "password";
    }

    bool Login() { return DoLogin(m_job); }
    bool Plain() { return DoPlainLogin(m_job); }
    int LastError() const { return m_nLastError; }
    const std::string& LastReply() const { return m_strLastError; }
};

/// The challenge of a reply, decoded bit by bit: the characters behind the fourth and before the last two.
std::string Challenge(const std::string& reply) {
    static constexpr const char* kAlphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bits;
    for (std::size_t i = 4; i + 2 < reply.size() && reply[i] != '='; ++i) {
        const char* const found = reply[i] == '\0' ? nullptr : std::strchr(kAlphabet, reply[i]);
        for (int bit = 5; found != nullptr && bit >= 0; --bit) {
            bits += ((found - kAlphabet) >> bit & 1) != 0 ? '1' : '0';
        }
    }
    std::string text;
    for (std::size_t i = 0; i + 8 <= bits.size(); i += 8) {
        text += static_cast<char>(std::stoi(bits.substr(i, 8), nullptr, 2));
    }
    return text;
}

enum class End { Accepted, Declined, Thrown };

template <typename Exchange>
End Try(Exchange exchange) {
    try {
        return exchange() ? End::Accepted : End::Declined;
    } catch (const KvSmtpException&) {
    } catch (const KvioException&) {
    } catch (const std::out_of_range&) {
    }
    return End::Thrown;
}

/// The replies that were read, as the engine sees them; a time-out is an empty one.
std::vector<std::string> Replies(const kvfuzz::FakeServer& server) {
    std::vector<std::string> replies;
    for (const Event& event : server.Events()) {
        if (event.kind == Event::Received || event.kind == Event::TimedOut) {
            replies.push_back(kvfuzz::Seen(event.bytes));
        }
    }
    return replies;
}

std::vector<std::string> Sent(const kvfuzz::FakeServer& server) {
    std::vector<std::string> sent;
    for (const Event& event : server.Events()) {
        if (event.kind == Event::Sent) {
            sent.push_back(event.bytes);
        }
    }
    return sent;
}

bool Begins(const std::string& reply, char digit) {
    return !reply.empty() && reply[0] == digit;
}

void CheckLogin(End end, const Engine& engine, const kvfuzz::FakeServer& server) {
    static const std::vector<std::string> kLines = {"AUTH LOGIN\r\n", "dXNlcg==\r\n", "cGFzc3dvcmQ=\r\n"};
    const std::vector<std::string> replies = Replies(server);
    const std::vector<std::string> sent = Sent(server);
    KV_FUZZ_CHECK(!sent.empty() && sent.size() <= kLines.size());
    KV_FUZZ_CHECK(std::equal(sent.begin(), sent.end(), kLines.begin()));
    // Each answer follows the question for it.
    KV_FUZZ_CHECK(sent.size() < 2 || (Begins(replies[0], '3') && Challenge(replies[0]) == "Username:"));
    KV_FUZZ_CHECK(sent.size() < 3 || (Begins(replies[1], '3') && Challenge(replies[1]) == "Password:"));
    if (end == End::Accepted) {
        KV_FUZZ_CHECK(sent.size() == replies.size() && sent.size() >= 2 && Begins(replies.back(), '2'));
    }
    if (end == End::Declined) {
        KV_FUZZ_CHECK(sent.size() == replies.size());
        KV_FUZZ_CHECK(sent.size() > 1 || engine.LastError() == (Begins(replies[0], '3') ? 818 : 819));
        KV_FUZZ_CHECK(engine.LastError() == 0 || engine.LastReply() == replies.back());
    }
}

void CheckPlain(End end, const kvfuzz::FakeServer& server) {
    const std::vector<std::string> sent = Sent(server);
    KV_FUZZ_CHECK(!sent.empty() && sent.size() <= 2 && sent[0] == "AUTH PLAIN\r\n");
    KV_FUZZ_CHECK(sent.size() < 2 || sent[1] == "AHVzZXIAcGFzc3dvcmQ=\r\n");
    KV_FUZZ_CHECK(end != End::Declined && (end != End::Accepted || Replies(server).size() == 2));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kvfuzz::Input input(data, size);
    const bool isPlain = input.Piece() == "p";
    const kvfuzz::FakeServer server(input.Rest(), false, -1);
    Engine engine;
    const End end = Try([&] { return isPlain ? engine.Plain() : engine.Login(); });
    if (isPlain) {
        CheckPlain(end, server);
    } else {
        CheckLogin(end, engine, server);
    }
    return 0;
}
