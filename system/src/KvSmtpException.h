#pragma once

#include <string>

#include "KvProtocolException.h"

/// An SMTP failure: a 4yz or 5yz reply of the server, or a refusal of the engine itself (codes 801 to 820).
class KvSmtpException : public KvProtocolException {
public:
    /// Engine codes that are raised or recorded.
    enum EngineCode {
        MISSING_SERVER = 801,
        MISSING_TO = 802,
        MISSING_FROM = 803,
        MISSING_BODY = 804,
        TLS_REQUIRED = 815,
        STARTTLS_FAILED = 816,
        UNEXPECTED_PASSWORD_CHALLENGE = 817,
        UNEXPECTED_USERNAME_CHALLENGE = 818,
        AUTH_LOGIN_REFUSED = 819,
        MALFORMED_FROM = 820
    };

    KvSmtpException(int code, const std::string& text);

    /// From a raw reply (RFC 5321 4.2): the code is its first three characters, the text is everything from
    /// the fifth character on, line endings and further lines included.
    ///
    /// Compatibility: a reply of three characters or fewer throws std::out_of_range ("basic_string::substr")
    /// instead.
    /// Relied on by: dispatchers, which report such a reply as an unknown error with an empty reason.
    /// Held by: KvSmtpExceptionTest.AReplyOfThreeCharactersIsOutOfRange.
    explicit KvSmtpException(const std::string& reply);
};
