#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace kvsink {

/// An account that AUTH accepts.
struct Account {
    std::string name;
    std::string password;
};

/// What a server is told before it starts. Immutable once a server has it.
struct Options {
    /// Loopback address and port, "127.0.0.1:2525" or "[::1]:2525"; port 0 takes a free one.
    std::string listen = "127.0.0.1:0";
    /// Where each mail is stored as an .eml file; empty: mails are counted only.
    std::string maildir;
    /// A file that gets a line for each mail that is taken; empty: none.
    std::string journal;

    /// STARTTLS is offered when certFile and keyFile (PEM), or else selfSignedDir, are set.
    std::string certFile;
    std::string keyFile;
    /// A directory that receives ca.pem, cert.pem and key.pem, made anew at each start.
    std::string selfSignedDir;

    /// AUTH is offered when there is an account.
    std::vector<Account> accounts;
    bool requireTls = false;
    bool requireAuth = false;

    /// Recipients that are answered with 550; letter case is ignored.
    std::vector<std::string> refused;
    /// How long each reply is held back. Replies to pipelined commands are held back one after the other.
    std::chrono::milliseconds replyDelay{0};
    /// The largest mail that is taken, in bytes after dot-unstuffing; 0: any size.
    std::uint64_t maxSize = std::uint64_t{32} * 1024 * 1024;
    /// A connection that is silent this long is told 421 and closed.
    std::chrono::milliseconds idleTimeout{std::chrono::minutes(5)};

    bool offersTls() const { return !certFile.empty() || !selfSignedDir.empty(); }
    bool offersAuth() const { return !accounts.empty(); }
};

}  // namespace kvsink
