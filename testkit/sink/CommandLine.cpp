#include "CommandLine.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <limits>

#include "StartError.h"

namespace kvsink {
namespace {

// As long as epoll and the clock can count without a thought: a day.
const int MAX_WAIT_MS = 24 * 3600 * 1000;

/// The options as CLI11 fills them in.
struct Raw {
    CommandLine result;
    bool countOnly = false;
    std::vector<std::string> users;
    std::vector<std::string> passwords;
    int replyDelayMs = 0;
    int idleTimeoutMs = 300'000;
};

void addWhereAndWhat(CLI::App& app, Raw& raw) {
    Options& options = raw.result.options;
    app.add_option("--listen", options.listen, "Loopback ADDRESS:PORT to listen on; port 0 takes a free one")
        ->capture_default_str();
    app.add_option("--port-file", raw.result.portFile, "FILE that receives the port once it is bound");
    app.add_option("--maildir", options.maildir, "DIRECTORY where each mail is stored as an .eml file");
    app.add_flag("--count-only", raw.countOnly, "Count mails and store nothing");
    app.add_option("--journal", options.journal, "FILE that gets a line for each mail that is taken");
    app.add_flag("--quiet", raw.result.quiet, "Print the address and the final summary only");
}

void addSecurity(CLI::App& app, Raw& raw) {
    Options& options = raw.result.options;
    app.add_option("--cert", options.certFile, "PEM FILE with the certificate chain for STARTTLS");
    app.add_option("--key", options.keyFile, "PEM FILE with the private key of --cert");
    app.add_option("--self-signed", options.selfSignedDir,
                   "DIRECTORY where ca.pem, cert.pem and key.pem are made for STARTTLS");
    app.add_option("--user", raw.users, "NAME that AUTH accepts; repeatable, each with its --password")
        ->allow_extra_args(false);
    app.add_option("--password", raw.passwords, "Password of the --user in the same place")
        ->allow_extra_args(false);
    app.add_flag("--require-tls", options.requireTls, "Take no mail before STARTTLS");
    app.add_flag("--require-auth", options.requireAuth, "Take no mail before AUTH");
}

void addBehaviour(CLI::App& app, Raw& raw) {
    Options& options = raw.result.options;
    app.add_option("--refuse", options.refused, "Recipient ADDRESS that is answered with 550; repeatable")
        ->allow_extra_args(false);
    app.add_option("--reply-delay", raw.replyDelayMs, "MILLISECONDS that each reply is held back")
        ->check(CLI::Range(0, MAX_WAIT_MS));
    app.add_option("--max-size", options.maxSize, "Largest mail in BYTES; 0 takes any")
        ->capture_default_str();
    app.add_option("--idle-timeout", raw.idleTimeoutMs,
                   "MILLISECONDS of silence after which a connection is closed")
        ->check(CLI::Range(1, MAX_WAIT_MS))
        ->capture_default_str();
}

void require(bool holds, const char* option, const char* reason) {
    if (!holds) {
        throw StartError(option, reason);
    }
}

void checkTogether(const Raw& raw) {
    const Options& options = raw.result.options;
    require(raw.countOnly == options.maildir.empty(), "--maildir", "give either --maildir or --count-only");
    require(options.certFile.empty() == options.keyFile.empty(),
            options.certFile.empty() ? "--cert" : "--key", "--cert and --key go together");
    require(options.certFile.empty() || options.selfSignedDir.empty(), "--self-signed",
            "does not go with --cert");
    require(!options.requireTls || options.offersTls(), "--require-tls", "needs --cert or --self-signed");
    require(raw.users.size() == raw.passwords.size(),
            raw.users.size() < raw.passwords.size() ? "--user" : "--password",
            "each --user needs one --password");
    require(!options.requireAuth || !raw.users.empty(), "--require-auth", "needs --user and --password");
}

CommandLine convert(Raw& raw) {
    Options& options = raw.result.options;
    for (std::size_t i = 0; i < raw.users.size(); ++i) {
        options.accounts.push_back({raw.users[i], raw.passwords[i]});
    }
    options.replyDelay = std::chrono::milliseconds(raw.replyDelayMs);
    options.idleTimeout = std::chrono::milliseconds(raw.idleTimeoutMs);
    return raw.result;
}

}  // namespace

std::optional<CommandLine> parseCommandLine(int argc, const char* const* argv) {
    CLI::App app("kvsink, a mail server for tests and demonstrations on the loopback interface");
    Raw raw;
    addWhereAndWhat(app, raw);
    addSecurity(app, raw);
    addBehaviour(app, raw);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        throw StartError("usage", error.what());
    }
    checkTogether(raw);
    return convert(raw);
}

}  // namespace kvsink
