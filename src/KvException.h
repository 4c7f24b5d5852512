#pragma once

#include <exception>
#include <string>

/// Root of the failures that the lower layers cannot handle: sockets, TLS, locks, events, threads, the pool.
/// Immutable after construction. Thrown by value, caught by reference.
///
/// Compatibility: what() is not overridden. It answers the generic text of std::exception, never the message.
/// Relied on by: handlers that print ToString() or GetMsg() and treat what() as noise.
/// Held by: KvExceptionTest.WhatIsTheGenericStandardText.
class KvException : public std::exception {
public:
    ~KvException() override = default;

    /// One line that describes the failure; every field is printed, empty ones as empty brackets.
    virtual std::string ToString();
    /// What failed, in the thrower's words.
    virtual std::string GetMsg();
    /// Source file name of the throw site as the thrower passed it.
    virtual std::string GetFile();
    /// Source line of the throw site; 0 when the thrower gave none.
    virtual int GetLine();
    /// The operating system's description of the error; empty when the thrower gave none.
    virtual std::string GetSysMsg();

protected:
    KvException(const char* sourceFile, int sourceLine, const std::string& message,
                const std::string& systemMessage);

    std::string msg;
    std::string file;
    int line;
    std::string sysmsg;
};

/// The description of the calling thread's current errno. Thread-safe.
/// Call it right after the failing system call, before anything else can change errno.
std::string KvgetLastError();
