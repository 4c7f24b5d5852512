// kvsink: the mail server as a program.

#include <csignal>
#include <iostream>
#include <system_error>

#include "AtomicFile.h"
#include "CommandLine.h"
#include "Server.h"
#include "StartError.h"

namespace {

const int CANNOT_START = 2;

/// SIGTERM and SIGINT are not delivered but waited for.
sigset_t blockStopSignals() {
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGTERM);
    ::sigaddset(&signals, SIGINT);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

void writePortFile(const std::string& file, std::uint16_t port) {
    if (file.empty()) {
        return;
    }
    try {
        kvsink::writeFileAtomically(file, std::to_string(port) + "\n", 0644);
    } catch (const std::system_error& error) {
        throw kvsink::StartError("--port-file", error.what());
    }
}

void describe(const kvsink::Options& options) {
    if (options.maildir.empty()) {
        std::cout << "mails are counted, not stored\n";
    } else {
        std::cout << "mails are stored in " << options.maildir << "\n";
    }
    std::cout << "STARTTLS is "
              << (!options.offersTls() ? "not offered"
                  : options.requireTls ? "required"
                                       : "offered")
              << ", AUTH is "
              << (!options.offersAuth() ? "not offered"
                  : options.requireAuth ? "required"
                                        : "offered")
              << std::endl;
}

void printSummary(const kvsink::Counts& counts) {
    std::cout << "kvsink received " << counts.mails << " mails, " << counts.recipients << " recipients, "
              << counts.connections << " connections, " << counts.refused << " refused" << std::endl;
}

void serve(const kvsink::CommandLine& commandLine, const sigset_t& stopSignals) {
    kvsink::Server server(commandLine.options);
    server.start();
    writePortFile(commandLine.portFile, server.port());
    std::cout << "kvsink listening on " << server.boundAddress() << std::endl;
    if (!commandLine.quiet) {
        describe(commandLine.options);
    }
    int signal = 0;
    ::sigwait(&stopSignals, &signal);
    server.stop();
    printSummary(server.counters());
}

}  // namespace

int main(int argc, char** argv) {
    const sigset_t stopSignals = blockStopSignals();
    ::signal(SIGPIPE, SIG_IGN);
    try {
        if (const auto commandLine = kvsink::parseCommandLine(argc, argv)) {
            kvsink::raiseDescriptorLimit();
            serve(*commandLine, stopSignals);
        }
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "kvsink: " << error.what() << std::endl;
        return CANNOT_START;
    }
}
