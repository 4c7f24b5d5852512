// How many messages a second the plug-in delivers over loopback to kvsink, which counts and stores nothing.
#include <benchmark/benchmark.h>

#include <atomic>
#include <stdexcept>

#include "LoadedDriver.h"
#include "PeerProcess.h"
#include "TestMessageFile.h"

namespace {

using namespace kvtest;
using Reports = KvMessengerReportsMngrInterface;

constexpr int kMessages = 3000;
constexpr std::size_t kTextSize = 1024;

/// kvsink as a process of its own, as a mail server is.
class Sink {
public:
    Sink() : m_process({KV_BINARY_DIR "/kvsink", "--listen", "127.0.0.1:0", "--count-only"}) {
        const std::string line = m_process.readLine();
        const std::size_t address = line.rfind(' ');
        if (address == std::string::npos) {
            throw std::runtime_error("kvsink did not start");
        }
        m_address = line.substr(address + 1);
    }
    const std::string& Address() const { return m_address; }

private:
    PeerProcess m_process;
    std::string m_address;
};

/// Takes every line and keeps none: what remains is the driver's own work for its log.
class CountingLog : public KvLogInterface {
public:
    void LogTrace(const std::string&, int, const char*) override { ++m_lines; }
    void LogDebug(const std::string&, int, const char*) override { ++m_lines; }
    void LogInfo(const std::string&, int, const char*) override { ++m_lines; }
    void LogWarning(const std::string&, int, const char*) override { ++m_lines; }
    void LogError(const std::string&, int, const char*) override { ++m_lines; }

private:
    std::atomic<long> m_lines{0};
};

std::vector<std::unique_ptr<TestMessageFile>> Messages(const std::string& server) {
    std::vector<std::unique_ptr<TestMessageFile>> files;
    for (int i = 0; i < kMessages; ++i) {
        const std::string number = std::to_string(i);
        files.push_back(MessageBuilder()
                            .id("J" + number + "_1")
                            .jobId(number)
                            .server(server)
                            .text(std::string(kTextSize, 'x'))
                            .build());
    }
    return files;
}

/// Hands the files over in as many parts as there are connections, with a tick after each: every tick takes a
/// connection of its own.
void DeliverAll(LoadedDriver& driver, HostDoubles& host,
                const std::vector<std::unique_ptr<TestMessageFile>>& files, int connections) {
    const int back = host.queue.count();
    const std::size_t part = files.size() / static_cast<std::size_t>(connections);
    for (std::size_t i = 0; i < files.size(); ++i) {
        Reports::ReportsStatus status{};
        driver->SendAMessage(files[i].get(), status);
        if ((i + 1) % part == 0) {
            driver->PeriodicEvent();
        }
    }
    if (!host.queue.waitFor(back + kMessages, std::chrono::minutes(5))) {
        throw std::runtime_error("messages are missing");
    }
    for (const auto& file : files) {
        if (file->m_eStatus != Reports::REPORT_COMPLETED) {
            throw std::runtime_error("a message failed: " + file->failureReason());
        }
    }
}

void Deliver(benchmark::State& state) {
    const int connections = static_cast<int>(state.range(0));
    const bool logging = state.range(1) != 0;
    const Sink sink;
    const auto files = Messages(sink.Address());
    CountingLog log;
    HostDoubles host;
    LoadedDriver driver(KV_BINARY_DIR "/libkvsmtpdriver.so");
    driver.start(host, {{"smart_driver.threadpool_size", std::to_string(connections)}});
    driver->m_pLog = logging ? &log : nullptr;
    for (auto _ : state) {
        DeliverAll(driver, host, files, connections);
    }
    state.SetItemsProcessed(state.iterations() * kMessages);
}

BENCHMARK(Deliver)
    ->ArgNames({"connections", "log"})
    ->ArgsProduct({{1, 3}, {0, 1}})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
