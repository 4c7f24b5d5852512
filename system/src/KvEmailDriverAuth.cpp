// Authentication of KvEmailDriver: AUTH PLAIN and AUTH LOGIN.
#include "KvEmailDriver.h"
#include "KvsysCodec.h"

namespace {

constexpr std::size_t kChallengeStart = 4;
constexpr int kLineEndLength = 2;

bool BeginsWith(const std::string& reply, char digit) {
    return !reply.empty() && reply[0] == digit;
}

/// Base64 of `text` and CR LF: a complete line.
std::string EncodedLine(std::string text) {
    return KvsysCodec::EncodeBase64(reinterpret_cast<unsigned char*>(text.data()),
                                    static_cast<int>(text.size()), true);
}

/// The decoded challenge of a 334 reply. Throws std::out_of_range for a reply of three characters or fewer.
std::string Challenge(const std::string& reply) {
    std::string text = reply.substr(kChallengeStart);
    int length = static_cast<int>(text.size()) - kLineEndLength;
    KvsysCodec::DecodeBase64(reinterpret_cast<unsigned char*>(text.data()), length);
    return text.substr(0, static_cast<std::size_t>(length));
}

}  // namespace

void KvEmailDriver::Authorize() {
    Authenticate(m_job);
}

void KvEmailDriver::Authenticate(Job& job) {
    if (job.bAuthPlain) {
        DoPlainLogin(job);
    } else if (job.bAuthLogin) {
        DoLogin(job);
    }
}

bool KvEmailDriver::DoPlainLogin(Job& job) {
    std::string reply;
    SmtpWrite("AUTH PLAIN\r\n");
    SmtpRead(reply);
    SmtpWrite(EncodedLine('\0' + job.strUser + '\0' + job.strPassword));
    SmtpRead(reply);
    return true;
}

bool KvEmailDriver::DoLogin(Job& job) {
    const std::string reply = SendAndRead("AUTH LOGIN\r\n");
    if (!BeginsWith(reply, '3')) {
        return RecordAuthError(KvSmtpException::AUTH_LOGIN_REFUSED, reply);
    }
    if (Challenge(reply) != "Username:") {
        return RecordAuthError(KvSmtpException::UNEXPECTED_USERNAME_CHALLENGE, reply);
    }
    const std::string next = SendAndRead(EncodedLine(job.strUser));
    if (BeginsWith(next, '3')) {
        return AnswerPasswordChallenge(job, next);
    }
    return BeginsWith(next, '2');
}

bool KvEmailDriver::AnswerPasswordChallenge(Job& job, const std::string& reply) {
    if (Challenge(reply) != "Password:") {
        return RecordAuthError(KvSmtpException::UNEXPECTED_PASSWORD_CHALLENGE, reply);
    }
    return BeginsWith(SendAndRead(EncodedLine(job.strPassword)), '2');
}

bool KvEmailDriver::RecordAuthError(int code, const std::string& reply) {
    m_strLastError = reply;
    m_nLastError = code;
    return false;
}

std::string KvEmailDriver::SendAndRead(const std::string& text) {
    std::string reply;
    SmtpWrite(text);
    SmtpRead(reply);
    return reply;
}
