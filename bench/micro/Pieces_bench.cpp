// The pieces of the driver one by one.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdint>
#include <thread>

#include "HollowDriver.h"
#include "KvCoreHelpers.h"
#include "KvMimeMessage.h"
#include "KvSmtpDriver.h"
#include "KvString.h"
#include "KvconThreadPool.h"
#include "KvsysCodec.h"
#include "TempDir.h"

namespace {

using kvbench::HollowDriver;
using Reports = KvMessengerReportsMngrInterface;

std::string Bytes(std::size_t size) {
    std::string bytes(size, '\0');
    std::uint32_t state = 1;
    for (char& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24U);
    }
    return bytes;
}

std::string Lines(std::size_t size) {
    std::string text(size, 'x');
    for (std::size_t i = 71; i < size; i += 72) {
        text[i] = '\n';
    }
    return text;
}

// --- intake and tick ---

void FileAll(KvProtocolDriverInterface& driver,
             const std::vector<std::unique_ptr<kvbench::HollowFile>>& files) {
    Reports::ReportsStatus status{};
    for (const auto& file : files) {
        driver.SendAMessage(file.get(), status);
    }
}

/// The SMTP driver's own intake: its key of a connection names server, account and files.
class FilingDriver : public KvSMTPDriver {
public:
    FilingDriver() {
        std::map<std::string, std::string> settings;
        Configure(settings);
        Setup(nullptr);
    }
    ~FilingDriver() override { Cleanup(); }
    void Forget() { m_mapCarrierSessions.clear(); }
};

void Intake(benchmark::State& state) {
    const auto files = kvbench::HollowFiles(10000, static_cast<std::size_t>(state.range(0)));
    for (const auto& file : files) {
        file->m_strSmtpServer = "mail.example.org:25";
        file->m_strSmtpUser = "user";
        file->m_strSmtpPassword = "password";
    }
    FilingDriver driver;
    for (auto _ : state) {
        FileAll(driver, files);
        state.PauseTiming();
        driver.Forget();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(files.size()));
}
BENCHMARK(Intake)->ArgName("carriers")->Arg(1)->Arg(100)->Arg(10000);

void TickOverEmptySessions(benchmark::State& state) {
    const auto files = kvbench::HollowFiles(static_cast<std::size_t>(state.range(0)),
                                            static_cast<std::size_t>(state.range(0)));
    HollowDriver driver;
    FileAll(driver, files);
    driver.Forget();
    for (auto _ : state) {
        driver.PeriodicEvent();
    }
}
BENCHMARK(TickOverEmptySessions)
    ->ArgName("sessions")
    ->Arg(100)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMicrosecond);

void TickOverFullSessions(benchmark::State& state) {
    const auto sessions = static_cast<std::size_t>(state.range(0));
    const auto files = kvbench::HollowFiles(10000, sessions);
    HollowDriver driver;
    std::size_t expected = 0;
    for (auto _ : state) {
        FileAll(driver, files);
        driver.PeriodicEvent();
        expected += files.size();
        while (driver.Returned() < expected) {
            std::this_thread::yield();
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(files.size()));
}
BENCHMARK(TickOverFullSessions)
    ->ArgName("sessions")
    ->Arg(1)
    ->Arg(100)
    ->Arg(10000)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// --- the cache of connections ---

void TakeAndReleaseAConnection(benchmark::State& state) {
    HollowDriver driver;
    kvbench::HollowFile file;
    for (auto _ : state) {
        bool failed = false;
        driver.ReleaseConnToCache(driver.GetConnFromCache("key", &file, &failed));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(TakeAndReleaseAConnection);

// --- the thread pool ---

std::atomic<int> worksLeft{0};

class ShortWork : public KvconDelegate {
public:
    void* DoWork(void*) override {
        --worksLeft;
        return nullptr;
    }
    void StopWork() override {}
    void PauseWork() override {}
    void ResumeWork() override {}
};

void PoolThroughput(benchmark::State& state) {
    constexpr int kWorks = 10000;
    KvconThreadPool pool;
    pool.Initialize(static_cast<unsigned int>(state.range(0)));
    for (auto _ : state) {
        worksLeft = kWorks;
        for (int i = 0; i < kWorks; ++i) {
            pool.AddWork(new ShortWork);
        }
        while (worksLeft > 0) {
            std::this_thread::yield();
        }
    }
    pool.Stop(1000);
    state.SetItemsProcessed(state.iterations() * kWorks);
}
BENCHMARK(PoolThroughput)
    ->ArgName("threads")
    ->Arg(1)
    ->Arg(3)
    ->Arg(10)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// --- texts ---

void FormatALogLine(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(printfToString("Processing session with %u msg files group ...", 3U));
    }
}
BENCHMARK(FormatALogLine);

void MakeBytesSafe(benchmark::State& state) {
    std::string data = Lines(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(KvstringSafeByteString(data.data(), static_cast<int>(data.size())));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(MakeBytesSafe)->ArgName("bytes")->Arg(40)->Arg(4000);

void EncodeBase64(benchmark::State& state) {
    std::string data = Bytes(static_cast<std::size_t>(state.range(0)));
    std::string out;
    for (auto _ : state) {
        KvsysCodec::EncodeBase64(reinterpret_cast<unsigned char*>(data.data()), static_cast<int>(data.size()),
                                 out, true);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(EncodeBase64)->ArgName("bytes")->Arg(30)->Arg(1 << 20);

void DecodeBase64(benchmark::State& state) {
    std::string data = Bytes(static_cast<std::size_t>(state.range(0)));
    std::string encoded;
    KvsysCodec::EncodeBase64(reinterpret_cast<unsigned char*>(data.data()), static_cast<int>(data.size()),
                             encoded, true);
    std::string buffer;
    for (auto _ : state) {
        buffer = encoded;
        int length = static_cast<int>(buffer.size());
        benchmark::DoNotOptimize(
            KvsysCodec::DecodeBase64(reinterpret_cast<unsigned char*>(buffer.data()), length));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(DecodeBase64)->ArgName("bytes")->Arg(30)->Arg(1 << 20);

void MakeAMessage(benchmark::State& state) {
    const std::string text = Lines(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(KvMimeMessageText("ann@example.org", "Subject", text, {}));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(MakeAMessage)->ArgName("text")->Arg(1024)->Arg(10 << 20);

void MakeAMessageWithAnAttachment(benchmark::State& state) {
    const kvtest::TempDir dir;
    const std::string path = dir.write("file", Bytes(static_cast<std::size_t>(state.range(0))));
    for (auto _ : state) {
        benchmark::DoNotOptimize(KvMimeMessageText("ann@example.org", "Subject", "Text", {path}));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(MakeAMessageWithAnAttachment)->ArgName("bytes")->Arg(100 << 10)->Arg(10 << 20);

void FindAndReplaceLineEnds(benchmark::State& state) {
    const std::string text = KvstringReplaceStr(Lines(10 << 20), "\n", "\r\n");
    for (auto _ : state) {
        std::string copy = text;
        findandreplace(copy, "\r\n", "\n");
        benchmark::DoNotOptimize(copy.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(FindAndReplaceLineEnds)->Unit(benchmark::kMillisecond);

}  // namespace
