// The dispatcher and its connections against servers that say anything: every message file comes back once, completed
// exactly when the server accepted the transaction that carried it.
//
// Input: options, then the script of the server (see support/FakeServer.h), which all connections share. Options: a digit
// from 0 to 3 for the security, "c" credentials, "f" handshakes fail, "g" log, "m" for each file (up to 9), "n" for each
// file that travels alone, "w" and a letter: sends fail from the letter's number on.
#include <algorithm>
#include <memory>
#include <set>

#include "KvSMTPMsgDispatcher.h"
#include "KvSmtpDriver.h"
#include "support/Check.h"
#include "support/CountingLog.h"
#include "support/FakeServer.h"
#include "support/Input.h"

namespace {

using kvfuzz::FakeServer;
using Event = FakeServer::Event;

constexpr int kMostOfATransaction = 3;

class MessageFile : public KvMessageFile {
public:
    void SetFailureReason(const std::string& reason) override {
        m_strReason = reason;
        m_bHasReason = true;
    }
    void SetStatusText(const std::string& text) override { KV_FUZZ_CHECK(text.empty()); }

    std::string m_strReason;
    bool m_bHasReason = false;
};

/// The driver without its pool: what a worker would do is done by the caller.
class Driver : public KvSMTPDriver {
public:
    Driver() {
        std::map<std::string, std::string> settings;
        ConfigureExt(settings);
        m_pCacheLock = new KvconLock;
    }
    ~Driver() override { CleanupExt(); }
};

class Options {
public:
    explicit Options(const std::string& text) : m_strText(text) {}

    bool Has(char c) const { return m_strText.find(c) != std::string::npos; }
    std::size_t Count(char c, std::ptrdiff_t most) const {
        return static_cast<std::size_t>(std::min(most, std::count(m_strText.begin(), m_strText.end(), c)));
    }
    SmtpSecurityType Security() const {
        const std::size_t digit = m_strText.find_first_of("0123");
        return static_cast<SmtpSecurityType>(digit == std::string::npos ? 1 : m_strText[digit] - '0');
    }
    int MostSends() const {
        const std::size_t mark = m_strText.find('w');
        const bool isSet = mark != std::string::npos && mark + 1 < m_strText.size();
        return isSet ? static_cast<unsigned char>(m_strText[mark + 1]) % 64 : -1;
    }

private:
    const std::string m_strText;
};

std::vector<std::unique_ptr<MessageFile>> MakeFiles(const Options& options) {
    std::vector<std::unique_ptr<MessageFile>> files;
    const std::size_t count = 1 + options.Count('m', 8) + options.Count('n', 3);
    for (std::size_t i = 0; i < count; ++i) {
        auto file = std::make_unique<MessageFile>();
        file->m_strMsgFileID = file->m_strJobID = "JOB_" + std::to_string(i);
        file->m_strRecipient = "r" + std::to_string(i) + "@example.org";
        file->m_strSubject = "Subject";
        file->m_strMessage = "A text.\n";
        file->m_strSmtpServer = "127.0.0.1:2525";
        file->m_strSmtpFrom = "from@example.org";
        file->m_strSmtpUser = options.Has('c') ? "user" : "";
        file->m_strSmtpPassword = options.Has('c') ? "password" : "";
        file->m_eSmtpSecurity = options.Security();
        files.push_back(std::move(file));
    }
    return files;
}

/// The first files travel together, the others alone.
std::vector<std::list<KvMessageFile*>> GroupsOf(const std::vector<std::unique_ptr<MessageFile>>& files,
                                                std::size_t together) {
    std::vector<std::list<KvMessageFile*>> groups(1);
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (i > together) {
            groups.emplace_back();
        }
        groups.back().push_back(files[i].get());
    }
    return groups;
}

/// As a cycle and a worker of the driver do it.
void DispatchAll(Driver& driver, const std::vector<std::list<KvMessageFile*>>& groups) {
    KvMessageFile* const first = groups.front().front();
    const std::string key = driver.GetCacheKey(first);
    bool createFailed = false;
    auto* const conn = driver.GetConnFromCache(key, first, &createFailed);
    KV_FUZZ_CHECK((conn == nullptr) == createFailed);
    const std::unique_ptr<KvSmartProtocolDriverDelegateIface> delegate(driver.GetProtocolDriverDelegate());
    KV_FUZZ_CHECK(delegate->Initialize(&driver, key, conn, groups, kMostOfATransaction, driver.m_pLog));
    KV_FUZZ_CHECK(delegate->DoWork(nullptr) == nullptr);
}

/// The recipients whose transaction the server accepted to its end.
std::set<std::string> AcceptedRecipients(const std::vector<Event>& events) {
    std::set<std::string> accepted;
    std::set<std::string> current;
    for (std::size_t i = 0; i < events.size(); ++i) {
        if (events[i].kind != Event::Sent) {
            continue;
        }
        const std::string& line = events[i].bytes;
        if (line.starts_with("MAIL FROM:")) {
            current.clear();
        } else if (line.starts_with("RCPT TO: <")) {
            current.insert(line.substr(10, line.size() - 13));
        } else if (line.ends_with("\r\n.\r\n") && i + 1 < events.size()) {
            const Event& reply = events[i + 1];
            const bool isReply = reply.kind == Event::Received || reply.kind == Event::TimedOut;
            if (isReply && !kvfuzz::IsRefusal(kvfuzz::Seen(reply.bytes))) {
                accepted.insert(current.begin(), current.end());
            }
        }
    }
    return accepted;
}

void CheckReturns(const std::vector<std::unique_ptr<MessageFile>>& files, const KvMessageFileQueue& queue,
                  const FakeServer& server) {
    KV_FUZZ_CHECK(queue.m_dqMsgFiles.size() == files.size());
    const std::set<KvMessageFile*> returned(queue.m_dqMsgFiles.begin(), queue.m_dqMsgFiles.end());
    KV_FUZZ_CHECK(returned.size() == files.size());
    const std::set<std::string> accepted = AcceptedRecipients(server.Events());
    for (const auto& file : files) {
        const bool isAccepted = accepted.count(file->m_strRecipient) != 0;
        KV_FUZZ_CHECK(file->m_eStatus == (isAccepted ? KvMessengerReportsMngrInterface::REPORT_COMPLETED
                                                     : KvMessengerReportsMngrInterface::REPORT_FAILED));
        KV_FUZZ_CHECK(file->m_bHasReason != isAccepted);
        KV_FUZZ_CHECK(!file->m_bForDeletion && file->m_tStatusTime != 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kvfuzz::Input input(data, size);
    const Options options(input.Piece());
    kvfuzz::CountingLog log;
    KvMessageFileQueue queue;
    const auto files = MakeFiles(options);
    const FakeServer server(input.Rest(), !options.Has('f'), options.MostSends());
    {
        Driver driver;
        driver.m_pLog = options.Has('g') ? &log : nullptr;
        driver.m_pMsgFileQueue = &queue;
        DispatchAll(driver, GroupsOf(files, options.Count('m', 8)));
    }
    CheckReturns(files, queue, server);
    KV_FUZZ_CHECK(server.OpenDescriptors() == 0);
    return 0;
}
