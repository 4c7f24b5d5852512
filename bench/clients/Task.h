#pragma once

#include <string>
#include <vector>

namespace kvbench {

/// What a client is told to deliver. The same for every client, whoever wrote it.
struct Task {
    int port = 0;  ///< of the server on 127.0.0.1
    int connections = 1;
    int messages = 1;         ///< transactions in all, shared out among the connections
    int recipients = 1;       ///< of each transaction
    std::size_t text = 1024;  ///< bytes of the text
    std::string attachment;   ///< path of the one attached file; empty for none
    std::string ca;           ///< PEM file of the trusted authority; STARTTLS is used when it is given
    std::string flavour;      ///< a way of the client's own
    std::string plugin;       ///< the driver to load, for the client that loads one
};

/// Reads the command line; ends the process with a message when it is no good.
Task ReadTask(int argc, char** argv);

/// The text of every message: lines of 64 characters, `size` bytes in all.
std::string Text(std::size_t size);
/// The address of a recipient, numbered from 0.
std::string Recipient(int number);
inline constexpr const char* kSender = "bench@example.org";
inline constexpr const char* kSubject = "Benchmark";

/// The whole content of a file. Throws std::runtime_error.
std::string FileContent(const std::string& path);

/// Measures from its construction on.
class Meter {
public:
    Meter();
    /// Prints what was measured as one line of JSON: seconds, CPU seconds of this process, and its peak memory in KiB.
    void Print() const;

private:
    double m_wall;
    double m_cpu;
};

}  // namespace kvbench
