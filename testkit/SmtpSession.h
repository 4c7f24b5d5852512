#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "SmtpRecorder.h"
#include "SmtpScript.h"
#include "SmtpServerOptions.h"
#include "SmtpWire.h"

namespace kvtest {

/// The conversation of one connection: what an ordinary server would say (RFC 5321, 3207, 4954), unless the
/// script says otherwise. One thread at a time.
class SmtpSession {
public:
    SmtpSession(SmtpWire& wire, int connection, const SmtpServerOptions& options, SSL_CTX* tls,
                SmtpScript& script, SmtpRecorder& recorder);

    /// Talks until a ConnectionOver is thrown. Passes on what a reply function throws.
    [[noreturn]] void run();

private:
    /// A line that is to be answered.
    struct Step {
        std::string name;
        std::string line;
        std::string argument = {};
    };
    using StateChange = std::function<void(SmtpRecorder::State&)>;

    [[noreturn]] void converse();
    void greet();
    void handle(const std::string& line);

    void onEhlo(const Step& step);
    void onHelo(const Step& step);
    void onMail(const Step& step);
    void onRcpt(const Step& step);
    void onData(const Step& step);
    void onRset(const Step& step);
    void onNoop(const Step& step);
    void onQuit(const Step& step);
    void onStartTls(const Step& step);
    void onAuth(const Step& step);
    void onUnknown(const Step& step);

    void receiveMessage();
    void authPlain(const Step& step, const std::string& initialResponse);
    void authLogin(const Step& step, const std::string& initialResponse);
    void checkPassword(const Step& step, const std::string& mechanism, const std::optional<Account>& account);
    /// Answers a step of AUTH that asks for more; false when the reply ended the exchange.
    bool challenge(const Step& step, const Reply& byDefault);

    Reply decide(const Step& step, const Reply& byDefault, std::string_view data = {});
    /// Records the step and what follows from it as one change, then sends the reply and does what it says.
    void conclude(const Step& step, const Reply& reply, const StateChange& change = {});
    void answer(const Step& step, const Reply& byDefault) { conclude(step, decide(step, byDefault)); }
    void send(const Reply& reply);
    void perform(Then action);

    Reply ehloReply() const;
    std::vector<std::string> extensions() const;
    std::optional<Reply> authObstacle() const;
    TransactionRecord newTransaction(const Step& step, bool refused) const;
    void resetTransaction();
    void upgrade();
    std::string readLine();
    void keepRest();

    SmtpWire& m_wire;
    const int m_connection;
    const SmtpServerOptions& m_options;
    SSL_CTX* const m_tls;
    SmtpScript& m_script;
    SmtpRecorder& m_recorder;

    std::string m_input;
    bool m_readingMessage = false;
    bool m_authenticated = false;
    std::map<std::string, int> m_occurrences;

    int m_transaction = 0;
    bool m_open = false;
    std::size_t m_record = 0;  // index of the open transaction's record
    bool m_hasRecipient = false;
    std::vector<std::string> m_offered;
};

}  // namespace kvtest
