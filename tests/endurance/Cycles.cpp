#include "endurance/Cycles.h"

#include <memory>

#include "Descriptors.h"
#include "ScriptedSmtpServer.h"
#include "endurance/EnduranceDriver.h"
#include "endurance/Interceptions.h"
#include "endurance/ProcessFigures.h"

namespace kvtest {

namespace {

/// The records of a server grow; another one takes over after so many cycles.
constexpr int kCyclesPerServer = 100;

bool DeliverOne(const std::string& server, Wire wire) {
    HostDoubles host;
    const auto file = MailOver(wire, server).build();
    WatchedDriver driver(host);
    const bool back = driver.HandOver(*file) && driver.PeriodicEvent() && host.queue.waitFor(1);
    driver.CleanUpOnce();
    return back && host.queue.count() == 1 && file->m_eStatus == Reports::REPORT_COMPLETED;
}

}  // namespace

CyclesReport RunCycles(int cycles, const std::function<void(int)>& afterEach) {
    const ShortPauses pauses;
    const SmtpServerOptions options = ServerWithEverything();
    CyclesReport report;
    report.descriptorsBefore = OpenDescriptorCount();
    report.threadsBefore = ThreadCount();
    std::unique_ptr<ScriptedSmtpServer> server;
    for (; report.cycles < cycles; ++report.cycles) {
        if (report.cycles % kCyclesPerServer == 0) {
            server = std::make_unique<ScriptedSmtpServer>(options);
        }
        const Wire wire = report.cycles % 2 == 0 ? Wire::Clear : Wire::Tls;
        report.completed += DeliverOne(server->address(), wire) ? 1 : 0;
        if (afterEach) {
            afterEach(report.cycles + 1);
        }
    }
    server.reset();
    report.descriptorsAfter = OpenDescriptorCount();
    // A thread that has ended may still be listed for a moment.
    Eventually([&report] { return (report.threadsAfter = ThreadCount()) == report.threadsBefore; });
    return report;
}

}  // namespace kvtest
