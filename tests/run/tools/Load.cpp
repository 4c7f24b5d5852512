// How fast `kvhost run` works off a backlog, and how soon an idle one has a job at the server.
//
//   kvrun_load [JOBS [CARRIERS [WORKERS]]]
//
// The mail server runs within this program, the host is a process of its own, the store lies below the system's
// temporary folder (TMPDIR).
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "Doorbell.h"
#include "Eventually.h"
#include "JobIntake.h"
#include "JobViews.h"
#include "TempDir.h"
#include "host/ChildProcess.h"
#include "sink/Server.h"

namespace {

using Clock = std::chrono::steady_clock;
using kvhost::JobState;

constexpr int kSamples = 100;

double MillisecondsSince(Clock::time_point begun) {
    return std::chrono::duration<double, std::milli>(Clock::now() - begun).count();
}

std::string CarrierName(int number) {
    return "carrier" + std::to_string(number);
}

std::string Config(int port, int carriers, int workers) {
    std::string text = "store = \"store\"\n[driver]\nthreadpool_size = " + std::to_string(workers) +
                       "\ndiff_carrier_connection_count = 30\n";
    for (int i = 0; i < carriers; ++i) {
        text += "[carrier." + CarrierName(i) + "]\nserver = \"127.0.0.1\"\nport = " + std::to_string(port) +
                "\nsecurity = \"clear\"\nsender = \"host@example.org\"\n";
    }
    return text;
}

kvhost::Submission Mail(const std::string& id, int carrier) {
    kvhost::Submission mail;
    mail.id = id;
    mail.carrier = CarrierName(carrier);
    mail.recipients = {"ops@example.org"};
    mail.subject = "Boiler";
    mail.text = "The boiler is cold.\nSomebody has to look at it.\n";
    return mail;
}

void Submit(kvhost::StoreDatabase& store, int jobs, int carriers) {
    std::vector<kvhost::Submission> mails;
    for (int i = 0; i < jobs; ++i) {
        mails.push_back(Mail("job-" + std::to_string(i), i % carriers));
    }
    kvhost::JobIntake(store).Submit(mails, kvhost::StoreNow());
}

/// From before the submission to the moment at which the server has the mail, in ms.
std::vector<double> WayTimes(kvhost::StoreDatabase& store, const kvsink::Server& server) {
    std::vector<double> times;
    kvhost::JobViews views(store);
    for (int i = 0; i < kSamples; ++i) {
        const std::string id = "sample-" + std::to_string(i);
        const auto mails = server.counters().mails;
        const Clock::time_point begun = Clock::now();
        kvhost::JobIntake(store).Submit({Mail(id, 0)}, kvhost::StoreNow());
        kvhost::Doorbell::Ring(store.Folder());
        kvtest::Eventually([&] { return server.counters().mails > mails; });
        times.push_back(MillisecondsSince(begun));
        kvtest::Eventually([&] { return views.Show(id).at(0).job.state == JobState::Delivered; });
    }
    std::sort(times.begin(), times.end());
    return times;
}

int Argument(int argc, char** argv, int position, int standard) {
    return argc > position ? std::max(1, std::atoi(argv[position])) : standard;
}

}  // namespace

int main(int argc, char** argv) {
    const int jobs = Argument(argc, argv, 1, 20000);
    const int carriers = Argument(argc, argv, 2, 30);
    const int workers = Argument(argc, argv, 3, 10);
    kvsink::Server server((kvsink::Options()));
    server.start();
    const kvtest::TempDir folder;
    const std::string config = folder.write("kvhost.toml", Config(server.port(), carriers, workers));
    kvhost::StoreDatabase store(folder.file("store"), kvhost::StoreDatabase::Access::Create);
    Submit(store, jobs, carriers);
    kvhosttest::ChildProcess host(
        {KV_BINARY_DIR "/kvhost", "run", "--config", config, "--driver", KV_BINARY_DIR "/libkvsmtpdriver.so"},
        {});
    const Clock::time_point begun = Clock::now();
    kvhost::JobViews views(store);
    const bool isDone = kvtest::Eventually([&] { return views.Count()[JobState::Delivered] == jobs; },
                                           std::chrono::minutes(10));
    const double took = MillisecondsSince(begun);
    std::printf("%s: %d jobs over %d carriers, %d workers: %.0f jobs/s (%llu mails at the server)\n",
                isDone ? "done" : "NOT DONE", jobs, carriers, workers, jobs * 1000 / took,
                static_cast<unsigned long long>(server.counters().mails));
    const std::vector<double> times = WayTimes(store, server);
    std::printf(
        "idle host, submission to the mail at the server, %d samples: median %.1f ms, 95 %% %.1f ms, longest "
        "%.1f ms\n",
        kSamples, times[kSamples / 2], times[kSamples * 95 / 100], times.back());
    host.Signal(SIGTERM);
    const int status = host.Wait();
    std::printf("%sexit status %d\n", host.Error().c_str(), status);
    return isDone && status == 0 ? 0 : 1;
}
