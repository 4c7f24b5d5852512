#include "KvSmtpException.h"

#include <cstdlib>

namespace {

constexpr int kKindSmtp = 5;
constexpr std::size_t kCodeLength = 3;
constexpr std::size_t kTextStart = 4;

}  // namespace

KvSmtpException::KvSmtpException(int code, const std::string& text) : KvProtocolException(kKindSmtp) {
    SetError(code, text);
}

KvSmtpException::KvSmtpException(const std::string& reply) : KvProtocolException(kKindSmtp) {
    const std::string code = reply.substr(0, kCodeLength);
    SetError(static_cast<int>(std::strtol(code.c_str(), nullptr, 10)), reply.substr(kTextStart));
}
