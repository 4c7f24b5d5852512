#pragma once

#include <memory>
#include <string>
#include <vector>

#include "KvMessageFile.h"

namespace kvtest {

/// A message file that remembers what the driver told it. One thread at a time, as the contract has it.
class TestMessageFile : public KvMessageFile {
public:
    // KvMessageFile
    void SetFailureReason(const std::string& reason) override { m_failureReasons.push_back(reason); }
    void SetStatusText(const std::string& text) override { m_statusTexts.push_back(text); }

    /// Every text of its kind in the order of the calls.
    const std::vector<std::string>& failureReasons() const { return m_failureReasons; }
    const std::vector<std::string>& statusTexts() const { return m_statusTexts; }
    /// The last one; empty when there was none.
    std::string failureReason() const;
    std::string statusText() const;

private:
    std::vector<std::string> m_failureReasons;
    std::vector<std::string> m_statusTexts;
};

/// Makes message files; a test says only what matters to it. One thread at a time.
///
/// Unless told otherwise: id "1001_1", job id "job-1", subject "Subject", text "Text", from ann@example.org
/// to bob@example.org, carrier 1 "mail", SMTP_SECURITY_CLEAR, no account, no TLS files.
///
///     auto job = MessageBuilder().recipient("eve@example.org").server(server.address()).build();
class MessageBuilder {
public:
    MessageBuilder();

    MessageBuilder& id(const std::string& fileId);
    MessageBuilder& jobId(const std::string& id);
    MessageBuilder& from(const std::string& address);
    MessageBuilder& recipient(const std::string& address);
    MessageBuilder& subject(const std::string& text);
    MessageBuilder& text(const std::string& body);
    MessageBuilder& attachment(const std::string& path);
    MessageBuilder& carrier(unsigned long id, const std::string& name);
    /// A host name or address, with ":port" where it matters.
    MessageBuilder& server(const std::string& hostAndPort);
    MessageBuilder& security(SmtpSecurityType type);
    MessageBuilder& account(const std::string& user, const std::string& password);
    MessageBuilder& caFile(const std::string& path);
    MessageBuilder& clientCertificate(const std::string& certFile, const std::string& keyFile);
    MessageBuilder& neverGrouped();
    MessageBuilder& twoWay();
    MessageBuilder& twoWayQuery();

    /// A new file each time; the builder can be changed and used again.
    std::unique_ptr<TestMessageFile> build() const;

private:
    TestMessageFile m_file;
};

}  // namespace kvtest
