#include "TestMessageFile.h"

namespace kvtest {

namespace {

std::string LastOf(const std::vector<std::string>& texts) {
    return texts.empty() ? "" : texts.back();
}

}  // namespace

std::string TestMessageFile::failureReason() const {
    return LastOf(m_failureReasons);
}

std::string TestMessageFile::statusText() const {
    return LastOf(m_statusTexts);
}

MessageBuilder::MessageBuilder() {
    m_file.m_strMsgFileID = "1001_1";
    m_file.m_strJobID = "job-1";
    m_file.m_strSubject = "Subject";
    m_file.m_strMessage = "Text";
    m_file.m_strSmtpFrom = "ann@example.org";
    m_file.m_strRecipient = "bob@example.org";
    m_file.m_ulCarrierID = 1;
    m_file.m_strCarrierName = "mail";
    m_file.m_eSmtpSecurity = SMTP_SECURITY_CLEAR;
}

MessageBuilder& MessageBuilder::id(const std::string& fileId) {
    m_file.m_strMsgFileID = fileId;
    return *this;
}

MessageBuilder& MessageBuilder::jobId(const std::string& id) {
    m_file.m_strJobID = id;
    return *this;
}

MessageBuilder& MessageBuilder::from(const std::string& address) {
    m_file.m_strSmtpFrom = address;
    return *this;
}

MessageBuilder& MessageBuilder::recipient(const std::string& address) {
    m_file.m_strRecipient = address;
    return *this;
}

MessageBuilder& MessageBuilder::subject(const std::string& text) {
    m_file.m_strSubject = text;
    return *this;
}

MessageBuilder& MessageBuilder::text(const std::string& body) {
    m_file.m_strMessage = body;
    return *this;
}

MessageBuilder& MessageBuilder::attachment(const std::string& path) {
    m_file.m_vecAttachments.push_back(path);
    return *this;
}

MessageBuilder& MessageBuilder::carrier(unsigned long id, const std::string& name) {
    m_file.m_ulCarrierID = id;
    m_file.m_strCarrierName = name;
    return *this;
}

MessageBuilder& MessageBuilder::server(const std::string& hostAndPort) {
    m_file.m_strSmtpServer = hostAndPort;
    return *this;
}

MessageBuilder& MessageBuilder::security(SmtpSecurityType type) {
    m_file.m_eSmtpSecurity = type;
    return *this;
}

MessageBuilder& MessageBuilder::account(const std::string& user, const std::string& password) {
    m_file.m_strSmtpUser = user;
    m_file.m_strSmtpPassword = password;
    return *this;
}

MessageBuilder& MessageBuilder::caFile(const std::string& path) {
    m_file.m_strSmtpCAFile = path;
    return *this;
}

MessageBuilder& MessageBuilder::clientCertificate(const std::string& certFile, const std::string& keyFile) {
    m_file.m_strSmtpCertFile = certFile;
    m_file.m_strSmtpKeyFile = keyFile;
    return *this;
}

MessageBuilder& MessageBuilder::neverGrouped() {
    m_file.m_bGroupInhibit = true;
    return *this;
}

MessageBuilder& MessageBuilder::twoWay() {
    m_file.m_b2WayEnabled = true;
    m_file.m_bIs2Way = true;
    return *this;
}

MessageBuilder& MessageBuilder::twoWayQuery() {
    m_file.m_bIs2WayQuery = true;
    return *this;
}

std::unique_ptr<TestMessageFile> MessageBuilder::build() const {
    return std::make_unique<TestMessageFile>(m_file);
}

}  // namespace kvtest
