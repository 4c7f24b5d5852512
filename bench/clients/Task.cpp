#include "Task.h"

#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace kvbench {

namespace {

double WallSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double Seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

double CpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
}

/// The most memory that this process held at once. Not what getrusage says, which counts the parent's in.
long PeakKib() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0) {
            return std::stol(line.substr(6));
        }
    }
    return 0;
}

}  // namespace

Task ReadTask(int argc, char** argv) {
    Task task;
    CLI::App app("Delivers messages to the server on a port of 127.0.0.1 and tells what that took.");
    app.add_option("--port", task.port)->required();
    app.add_option("--connections", task.connections)->check(CLI::PositiveNumber);
    app.add_option("--messages", task.messages)->check(CLI::PositiveNumber);
    app.add_option("--recipients", task.recipients)->check(CLI::PositiveNumber);
    app.add_option("--text", task.text);
    app.add_option("--attachment", task.attachment)->check(CLI::ExistingFile);
    app.add_option("--ca", task.ca)->check(CLI::ExistingFile);
    app.add_option("--flavour", task.flavour);
    app.add_option("--plugin", task.plugin)->check(CLI::ExistingFile);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        std::exit(app.exit(error));
    }
    return task;
}

std::string Text(std::size_t size) {
    constexpr std::size_t kLine = 64;
    std::string text(size, 'x');
    for (std::size_t end = kLine; end <= size; end += kLine) {
        text[end - 2] = '\r';
        text[end - 1] = '\n';
    }
    return text;
}

std::string Recipient(int number) {
    return "recipient" + std::to_string(number) + "@example.org";
}

std::string FileContent(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error(path + ": cannot be read");
    }
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

Meter::Meter() : m_wall(WallSeconds()), m_cpu(CpuSeconds()) {}

void Meter::Print() const {
    std::printf("{\"seconds\": %.6f, \"cpu\": %.6f, \"peak_kib\": %ld}\n", WallSeconds() - m_wall,
                CpuSeconds() - m_cpu, PeakKib());
}

}  // namespace kvbench
