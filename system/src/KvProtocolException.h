#pragma once

#include <string>

/// Root of the protocol failures. A family of its own: handlers of KvException do not catch it.
/// Copyable; handlers catch it by reference and by value.
class KvProtocolException {
public:
    virtual ~KvProtocolException() = default;
    KvProtocolException(const KvProtocolException&) = default;
    KvProtocolException& operator=(const KvProtocolException&) = default;

    void SetError(int code, const std::string& text) {
        m_strError = text;
        m_nError = code;
    }

    /// Kind of the protocol; nothing reads it.
    int m_nKind;
    /// A reply code of the server, or an engine code of the 800 range.
    int m_nError = 0;
    std::string m_strError;

protected:
    explicit KvProtocolException(int kind) : m_nKind(kind) {}
};
