// The floor: the driver's own conversation (RSET, MAIL, RCPT, DATA, text) by nothing but sockets, on a thread for each
// connection. The message is made once, before the clock starts. With the flavour "encode" the attachment is encoded
// anew for each message, by a plain table of the four characters of three bytes.
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

#include "KvMimeMessage.h"
#include "Task.h"

namespace {

using kvbench::Task;

[[noreturn]] void Fail(const std::string& what) {
    std::fprintf(stderr, "floor: %s\n", what.c_str());
    std::_Exit(1);
}

class Conversation {
public:
    explicit Conversation(const Task& task) : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<in_port_t>(task.port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
            Fail("cannot connect");
        }
        const int on = 1;
        setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        Expect('2');
        Say("EHLO [127.0.0.1]\r\n", '2');
        if (!task.ca.empty()) {
            Say("STARTTLS\r\n", '2');
            StartTls(task.ca);
            Say("EHLO [127.0.0.1]\r\n", '2');
        }
    }
    ~Conversation() {
        SSL_free(m_tls);
        SSL_CTX_free(m_context);
        close(m_socket);
    }
    Conversation(const Conversation&) = delete;
    Conversation& operator=(const Conversation&) = delete;

    void Say(const std::string& text, char expected) {
        Write(text);
        Expect(expected);
    }
    void Write(const std::string& text) {
        std::size_t done = 0;
        while (done < text.size()) {
            const long count =
                m_tls != nullptr ? SSL_write(m_tls, text.data() + done, static_cast<int>(text.size() - done))
                                 : send(m_socket, text.data() + done, text.size() - done, MSG_NOSIGNAL);
            if (count <= 0) {
                Fail("cannot write");
            }
            done += static_cast<std::size_t>(count);
        }
    }

private:
    /// Reads one reply to the end of its last line.
    void Expect(char expected) {
        std::size_t filled = 0;
        while (!IsWhole(filled)) {
            char* const at = m_reply.data() + filled;
            const long count = m_tls != nullptr
                                   ? SSL_read(m_tls, at, static_cast<int>(m_reply.size() - filled))
                                   : recv(m_socket, at, m_reply.size() - filled, 0);
            if (count <= 0) {
                Fail("the server closed the connection");
            }
            filled += static_cast<std::size_t>(count);
        }
        if (m_reply[0] != expected) {
            Fail("unexpected reply " + std::string(m_reply.data(), filled));
        }
    }
    bool IsWhole(std::size_t filled) const {
        if (filled < 4 || m_reply[filled - 1] != '\n') {
            return false;
        }
        std::size_t begin = filled - 1;
        while (begin > 0 && m_reply[begin - 1] != '\n') {
            --begin;
        }
        return filled - begin >= 4 && m_reply[begin + 3] != '-';
    }
    void StartTls(const std::string& ca) {
        m_context = SSL_CTX_new(TLS_client_method());
        SSL_CTX_load_verify_locations(m_context, ca.c_str(), nullptr);
        SSL_CTX_set_verify(m_context, SSL_VERIFY_PEER, nullptr);
        m_tls = SSL_new(m_context);
        SSL_set_fd(m_tls, m_socket);
        if (SSL_connect(m_tls) != 1) {
            Fail("TLS handshake failed");
        }
    }

    const int m_socket;
    SSL_CTX* m_context = nullptr;
    SSL* m_tls = nullptr;
    std::array<char, 4096> m_reply{};
};

/// Base64 with lines of 76 characters that end with a bare line feed.
class TableEncoder {
public:
    TableEncoder() {
        constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (unsigned i = 0; i < 4096; ++i) {
            m_pairs[i] = {kDigits[i >> 6U], kDigits[i & 63U]};
        }
    }
    void Append(const std::string& bytes, std::string& out) const {
        const auto* const data = reinterpret_cast<const unsigned char*>(bytes.data());
        const std::size_t begin = out.size();
        out.resize(begin + (bytes.size() + 2) / 3 * 4 + bytes.size() / kLineBytes + 2);
        char* to = out.data() + begin;
        std::size_t i = 0;
        for (std::size_t inLine = 0; i + 3 <= bytes.size(); i += 3) {
            const unsigned group =
                static_cast<unsigned>(data[i] << 16) | static_cast<unsigned>(data[i + 1] << 8) | data[i + 2];
            *to++ = m_pairs[group >> 12U][0];
            *to++ = m_pairs[group >> 12U][1];
            *to++ = m_pairs[group & 4095U][0];
            *to++ = m_pairs[group & 4095U][1];
            if ((inLine += 3) == kLineBytes) {
                *to++ = '\n';
                inLine = 0;
            }
        }
        if (i < bytes.size()) {
            const unsigned group = static_cast<unsigned>(data[i] << 16) |
                                   (i + 1 < bytes.size() ? static_cast<unsigned>(data[i + 1] << 8) : 0U);
            *to++ = m_pairs[group >> 12U][0];
            *to++ = m_pairs[group >> 12U][1];
            *to++ = i + 1 < bytes.size() ? m_pairs[group & 4095U][0] : '=';
            *to++ = '=';
        }
        out.resize(static_cast<std::size_t>(to - out.data()));
    }

private:
    static constexpr std::size_t kLineBytes = 57;
    std::array<std::array<char, 2>, 4096> m_pairs{};
};

/// The message: ready-made, or made anew each time around the attachment's bytes.
class Message {
public:
    explicit Message(const Task& task)
        : m_text(KvMimeMessageText(kvbench::kSender, kvbench::kSubject, kvbench::Text(task.text),
                                   Attachments(task)) +
                 ".\r\n") {
        if (task.flavour == "encode") {
            m_path = task.attachment;
            const std::size_t end = m_text.rfind("\n--");
            const std::size_t begin = m_text.rfind("\r\n\r\n", end) + 4;
            m_head = m_text.substr(0, begin);
            m_tail = m_text.substr(end);
        }
    }
    /// The text of the next message; `made` is where it is made if it has to be.
    const std::string& Next(std::string& made) const {
        if (m_path.empty()) {
            return m_text;
        }
        static const TableEncoder encoder;
        const std::string content = kvbench::FileContent(m_path);
        made = m_head;
        made.reserve(m_text.size() + 4096);
        encoder.Append(content, made);
        made += m_tail;
        return made;
    }

private:
    static std::vector<std::string> Attachments(const Task& task) {
        return task.attachment.empty() ? std::vector<std::string>()
                                       : std::vector<std::string>{task.attachment};
    }

    const std::string m_text;
    std::string m_path, m_head, m_tail;
};

void Deliver(const Task& task, const Message& message, std::atomic<int>& left) {
    Conversation conversation(task);
    std::vector<std::string> recipients;
    for (int i = 0; i < task.recipients; ++i) {
        recipients.push_back("RCPT TO: <" + kvbench::Recipient(i) + ">\r\n");
    }
    std::string made;
    while (left.fetch_sub(1) > 0) {
        conversation.Say("RSET\r\n", '2');
        conversation.Say("MAIL FROM: <" + std::string(kvbench::kSender) + ">\r\n", '2');
        for (const std::string& recipient : recipients) {
            conversation.Say(recipient, '2');
        }
        conversation.Say("DATA\r\n", '3');
        conversation.Say(message.Next(made), '2');
    }
}

}  // namespace

int main(int argc, char** argv) {
    const Task task = kvbench::ReadTask(argc, argv);
    const Message message(task);
    std::atomic<int> left{task.messages};
    const kvbench::Meter meter;
    std::vector<std::thread> threads;
    for (int i = 0; i < task.connections; ++i) {
        threads.emplace_back([&] { Deliver(task, message, left); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    meter.Print();
}
