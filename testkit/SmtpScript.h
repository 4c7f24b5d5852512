#pragma once

#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Reply.h"

namespace kvtest {

/// The steps of a conversation that can be scripted besides the command verbs ("EHLO", "RCPT", ...).
namespace step {
inline constexpr const char* Greeting = "GREETING";           ///< the client has connected
inline constexpr const char* EndOfData = "END-OF-DATA";       ///< the line with the single dot has come
inline constexpr const char* AuthPlain = "AUTH-PLAIN";        ///< the credentials line of AUTH PLAIN has come
inline constexpr const char* AuthUser = "AUTH-USER";          ///< the user name line of AUTH LOGIN has come
inline constexpr const char* AuthPassword = "AUTH-PASSWORD";  ///< the password line of AUTH LOGIN has come
inline constexpr const char* Any = "*";                       ///< every step
}  // namespace step

/// What the server is about to answer. All numbers count from 1.
struct CommandContext {
    int connection = 0;
    std::string step;      ///< the verb in upper case, or one of the names of namespace step
    int occurrence = 0;    ///< which one of its kind on this connection
    std::string line;      ///< as received, without its line ending
    std::string argument;  ///< what stands behind the verb and its blank
    /// The address of a MAIL or RCPT: between the first "<" and the next ">", or the text behind the colon.
    std::string address;
    int transaction = 0;                  ///< which transaction of this connection; 0 before the first MAIL
    std::vector<std::string> recipients;  ///< addresses offered in the transaction, a RCPT's own included
    std::string_view data;  ///< at the end of data: the message as received; valid during the call only
    bool insideTls = false;
    bool authenticated = false;
    Reply defaultReply;  ///< what the server would say without a script
};

/// Computes a reply. Called on the thread of the connection, at times on several threads at once.
using ReplyFunction = std::function<Reply(const CommandContext&)>;

/// Ends a connection instead of reading more bytes than that from the client (decrypted ones inside TLS).
struct ByteLimit {
    std::size_t bytes = 0;
    Then then = Then::Close;
    int connection = 0;  ///< 0 means every one
};

/// Where and when a scripted reply holds. A value type; an absent condition is always met.
struct ScriptRule {
    std::string step;
    std::optional<int> occurrence;
    std::optional<int> connection;
    std::optional<int> transaction;
    std::optional<int> times;
    std::optional<bool> insideTls;
    std::optional<std::string> recipient;
    ReplyFunction answer;

    bool matches(const CommandContext& context) const;
};

/// The scripted part of a server's behaviour. Thread-safe.
///
/// Of all rules that match a step the one added last wins.
class SmtpScript {
public:
    void add(ScriptRule rule);
    void add(ByteLimit limit);
    void clear();

    /// The scripted reply, or the context's default one.
    Reply replyTo(const CommandContext& context);
    std::optional<ByteLimit> byteLimit(int connection) const;

private:
    ReplyFunction chosenFor(const CommandContext& context);

    mutable std::mutex m_mutex;
    // Guarded by m_mutex.
    std::vector<ScriptRule> m_rules;
    std::vector<ByteLimit> m_limits;
};

/// Collects the conditions of a rule; reply() or answer() puts it into force. One thread at a time.
///
///     server.on("RCPT").recipient("bob@example.org").reply("550 5.1.1 no such user\r\n");
///     server.on("MAIL").occurrence(2).connection(1).reply(Reply("421 bye\r\n").thenClose());
class [[nodiscard]] RuleBuilder {
public:
    RuleBuilder(SmtpScript& script, std::string step);

    /// Only the n-th of its kind on a connection.
    RuleBuilder& occurrence(int n);
    /// Only on the n-th connection that was accepted.
    RuleBuilder& connection(int n);
    /// Only in the n-th transaction of a connection.
    RuleBuilder& transaction(int n);
    /// Only the first n times that the other conditions are met, over all connections.
    RuleBuilder& times(int n);
    RuleBuilder& inClear();
    RuleBuilder& insideTls();
    /// A RCPT with this address; another step when the address was offered earlier in its transaction.
    RuleBuilder& recipient(const std::string& address);

    void reply(const Reply& reply);
    void answer(ReplyFunction function);

private:
    SmtpScript& m_script;
    ScriptRule m_rule;
};

}  // namespace kvtest
