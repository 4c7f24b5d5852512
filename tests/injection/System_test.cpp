// The whole driver while calls of the system, of OpenSSL and of the allocator fail.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iostream>
#include <memory>

#include "Descriptors.h"
#include "Sweep.h"
#include "TempDir.h"

namespace {

using namespace kvinjection;
using kvfault::Call;
using kvfault::Kind;
using kvfault::Rule;

constexpr const char* kNoConnection =
    "Failed to create connection. Bad carrier configuration or carrier unreachable.";
constexpr const char* kInternalError = "Messenger internal error.";
constexpr const char* kNoReason = "";
/// The fault changes nothing: every job is completed but the one that the server refuses.
constexpr const char* kNoEffect = nullptr;

/// A call that fails at every place of the scenario in turn.
struct SweepCase {
    const char* name;
    Call call;
    int error;
    const char* reason;       ///< of a job in at least one of the runs, from its beginning
    unsigned long most = 10;  ///< places tried in the suite
    Kind kind = Kind::Fail;
    unsigned long times = 1;
    long seconds = 0;
};

void PrintTo(const SweepCase& sweep, std::ostream* out) {
    *out << sweep.name;
}

std::vector<Rule> RulesOf(const SweepCase& sweep, unsigned long calls) {
    std::vector<Rule> rules;
    for (const unsigned long number : Sample(calls, sweep.most)) {
        rules.push_back({sweep.call, number, sweep.times, sweep.error, sweep.kind, sweep.seconds});
    }
    return rules;
}

/// The reason behind the name of the job.
std::string ReasonIn(const std::string& text) {
    return text.substr(text.find(": ") + 2);
}

bool Shows(const std::vector<Report>& reports, const std::string& reason) {
    return std::ranges::any_of(reports, [&](const Report& report) {
        return std::ranges::any_of(report.reasons, [&](const std::string& text) {
            return reason.empty() ? ReasonIn(text).empty() : ReasonIn(text).starts_with(reason);
        });
    });
}

bool HasNoEffect(const std::vector<Report>& reports) {
    return std::ranges::all_of(reports, [](const Report& report) {
        return report.completed == kJobs - 1 && report.reasons.empty() && report.thrown == 0;
    });
}

std::vector<Report> RunSweep(const SweepCase& sweep, const Extras& extras) {
    const unsigned long calls = CallsInScenario(sweep.call);
    EXPECT_GT(calls, 0U) << "the scenario does not make this call";
    const std::vector<Rule> rules = RulesOf(sweep, calls);
    const std::vector<Report> reports = RunEach(rules, extras);
    EXPECT_EQ(Problems(rules, reports), "");
    EXPECT_TRUE(std::ranges::any_of(reports, [](const Report& report) { return report.injected > 0; }));
    std::cout << Summary(sweep.name, calls, reports) << "\n";
    return reports;
}

bool CannotFailHere(Call call) {
#ifdef KV_SANITIZED
    return call == Call::Malloc;
#else
    return call == Call::Count;
#endif
}

class SystemFaultTest : public testing::TestWithParam<SweepCase> {};

TEST_P(SystemFaultTest, LosesNoJobTellsTheReasonAndRecovers) {
    const SweepCase& sweep = GetParam();
    if (CannotFailHere(sweep.call)) {
        GTEST_SKIP() << "a sanitized program has an allocator of its own; operator new fails there too";
    }
    Extras extras;
    extras.attachmentMayBeEmpty =
        sweep.call == Call::Open || sweep.call == Call::Read || sweep.call == Call::Stat;
    const std::vector<Report> reports = RunSweep(sweep, extras);
    if (sweep.reason == kNoEffect) {
        EXPECT_TRUE(HasNoEffect(reports));
    } else {
        EXPECT_TRUE(Shows(reports, sweep.reason)) << "no run shows the fault";
    }
}

std::string NameOfCase(const testing::TestParamInfo<SweepCase>& info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(
    Connection, SystemFaultTest,
    testing::Values(SweepCase{"SocketOutOfDescriptors", Call::Socket, EMFILE, kNoConnection},
                    SweepCase{"SocketOutOfMemory", Call::Socket, ENOBUFS, kNoConnection},
                    SweepCase{"ConnectRefused", Call::Connect, ECONNREFUSED, kNoConnection},
                    SweepCase{"ConnectInterrupted", Call::Connect, EINTR, kNoConnection},
                    SweepCase{"ConnectTimedOut", Call::Connect, ETIMEDOUT, kNoConnection},
                    SweepCase{"GethostbynameFails", Call::Gethostbyname, EAGAIN, kNoConnection},
                    SweepCase{"SetsockoptFails", Call::Setsockopt, ENOMEM, kNoEffect},
                    SweepCase{"GetsockoptFails", Call::Getsockopt, ENOBUFS, kNoConnection},
                    SweepCase{"FcntlFails", Call::Fcntl, EBADF, kNoConnection, 20}),
    NameOfCase);

INSTANTIATE_TEST_SUITE_P(
    Exchange, SystemFaultTest,
    testing::Values(SweepCase{"SendReset", Call::Send, ECONNRESET, "Socket Write Error"},
                    SweepCase{"SendOutOfMemory", Call::Send, ENOBUFS, "Socket Write Error"},
                    SweepCase{"SendInterrupted", Call::Send, EINTR, "Socket Write Error"},
                    SweepCase{"SendsOneByte", Call::Send, 0, kNoEffect, 10, Kind::OneByte},
                    SweepCase{"SendsOnlySingleBytes", Call::Send, 0, kNoEffect, 2, Kind::OneByte, 1000000},
                    SweepCase{"RecvReset", Call::Recv, ECONNRESET, "Socket Read Error"},
                    SweepCase{"RecvOutOfMemory", Call::Recv, ENOMEM, "Socket Read Error"},
                    SweepCase{"RecvInterrupted", Call::Recv, EINTR, "Socket Read Error"},
                    SweepCase{"PselectOutOfMemory", Call::Pselect, ENOMEM, kNoEffect},
                    SweepCase{"PpollFails", Call::Ppoll, ENOMEM, kNoConnection},
                    SweepCase{"PpollInterrupted", Call::Ppoll, EINTR, kNoConnection}),
    NameOfCase);

INSTANTIATE_TEST_SUITE_P(
    Tls, SystemFaultTest,
    testing::Values(SweepCase{"CtxNewFails", Call::SslCtxNew, 0, kNoConnection},
                    SweepCase{"LoadVerifyLocationsFails", Call::SslCtxLoadVerifyLocations, 0, kNoConnection},
                    SweepCase{"NewFails", Call::SslNew, 0, kNoConnection},
                    SweepCase{"SetFdFails", Call::SslSetFd, 0, kNoConnection},
                    SweepCase{"ConnectFails", Call::SslConnect, 0, kNoConnection},
                    SweepCase{"GetPeerCertificateFails", Call::SslGetPeerCertificate, 0, kNoConnection},
                    SweepCase{"NameOnelineFails", Call::X509NameOneline, 0, kNoConnection},
                    SweepCase{"ReadFails", Call::SslRead, EIO, "SSL Socket Read Error"},
                    SweepCase{"WriteFails", Call::SslWrite, EIO, "SSL Write Error"},
                    SweepCase{"SocketReadFails", Call::Read, ECONNRESET, "SSL Socket Read Error", 20},
                    SweepCase{"SocketReadInterrupted", Call::Read, EINTR, kNoEffect},
                    SweepCase{"SocketReadsOneByte", Call::Read, 0, kNoEffect, 10, Kind::OneByte},
                    SweepCase{"SocketSendFails", Call::TlsSend, ECONNRESET, "SSL Write Error"},
                    SweepCase{"SocketSendInterrupted", Call::TlsSend, EINTR, kNoEffect},
                    SweepCase{"SocketSendsOneByte", Call::TlsSend, 0, kNoEffect, 10, Kind::OneByte}),
    NameOfCase);

INSTANTIATE_TEST_SUITE_P(
    ThreadsAndFiles, SystemFaultTest,
    testing::Values(SweepCase{"PthreadCreateFails", Call::PthreadCreate, EAGAIN, kInternalError},
                    SweepCase{"PthreadDetachFails", Call::PthreadDetach, EINVAL, kInternalError},
                    SweepCase{"FopenFails", Call::Fopen, EMFILE, kNoConnection},
                    SweepCase{"OpenFails", Call::Open, EMFILE, kNoEffect},
                    SweepCase{"StatFails", Call::Stat, EACCES, kNoEffect}),
    NameOfCase);

INSTANTIATE_TEST_SUITE_P(
    Memory, SystemFaultTest,
    testing::Values(SweepCase{"OperatorNewThrows", Call::OperatorNew, ENOMEM, kNoConnection, 130},
                    SweepCase{"OperatorNewThrows20Times", Call::OperatorNew, ENOMEM, kNoReason, 30,
                              Kind::Fail, 20},
                    SweepCase{"MallocFails", Call::Malloc, ENOMEM, kNoConnection, 120},
                    SweepCase{"MallocFails20Times", Call::Malloc, ENOMEM, kNoConnection, 40, Kind::Fail, 20}),
    NameOfCase);

INSTANTIATE_TEST_SUITE_P(Clock, SystemFaultTest,
                         testing::Values(SweepCase{"JumpsTenHoursAhead", Call::Clock, 0, kNoEffect, 15,
                                                   Kind::StepClock, 1000000, 36000},
                                         SweepCase{"JumpsTenHoursBack", Call::Clock, 0, kNoEffect, 15,
                                                   Kind::StepClock, 1000000, -36000}),
                         NameOfCase);

// The injector itself.

TEST(InjectorTest, WithoutARuleEveryJobIsCompletedButTheRefusedOne) {
    const Report report = RunOnce({});
    EXPECT_EQ(Problems({{}}, {report}), "");
    EXPECT_EQ(report.injected, 0U);
    EXPECT_EQ(report.completed, kJobs - 1);
    EXPECT_EQ(report.failed, 1);
    EXPECT_EQ(report.reasons, std::vector<std::string>{});
    EXPECT_EQ(report.thrown, 0);
}

TEST(InjectorTest, ARuleFailsExactlyTheCallsThatItNames) {
    const Report once = RunOnce({Call::Connect, 2, 1, ECONNREFUSED});
    EXPECT_EQ(once.injected, 1U);
    // The second carrier connects again for its later job. A job may be back before its connection is: then the next round
    // opens one more.
    EXPECT_GE(once.calls.at("connect"), 3U);
    EXPECT_EQ(once.reasons, (std::vector<std::string>{std::string("secure@example.org: ") + kNoConnection}));
    const Report always = RunOnce({Call::Connect, 1, 1000000, ECONNREFUSED});
    EXPECT_EQ(always.injected, 4U) << "two carriers in two rounds";
    EXPECT_EQ(always.completed, 2) << "the later ones";
}

TEST(InjectorTest, EveryNamedCallIsMadeByTheScenario) {
    const Report report = RunOnce({});
    for (const auto& [name, count] : report.calls) {
        const bool sanitized = CannotFailHere(Call::Malloc) && name == "malloc";
        EXPECT_TRUE(count > 0 || sanitized) << name;
    }
}

TEST(InjectorTest, ACrashAHangAndALostDescriptorAreFound) {
    const auto during = [](std::function<void()> harm) {
        Extras extras;
        extras.beforeLaterJobs = std::move(harm);
        return RunOnce({}, extras).problems;
    };
    EXPECT_EQ(during([] { raise(SIGKILL); }), std::vector<std::string>{"ended by signal 9"});
    EXPECT_EQ(during([] { _exit(3); }), std::vector<std::string>{"ended with the status 3"});
    ASSERT_EQ(during([] { static_cast<void>(dup(0)); }).size(), 1U);
}

// Descriptors.

void LimitDescriptors() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    // The lowest free number is what counts, not how many are open.
    const kvtest::ScopedDescriptor lowest(dup(0));
    limit.rlim_cur = static_cast<rlim_t>(lowest.get());
    setrlimit(RLIMIT_NOFILE, &limit);
}

void LiftLimit() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(DescriptorLimitTest, WithNoDescriptorLeftEveryJobFailsAndLaterOnesDoNot) {
    Extras extras;
    extras.beforeFirstJob = LimitDescriptors;
    extras.beforeLaterJobs = LiftLimit;
    const Report report = RunOnce({}, extras);
    EXPECT_EQ(Problems({{}}, {report}), "");
    EXPECT_EQ(report.completed, 2) << "the later ones";
    EXPECT_TRUE(Shows({report}, kNoConnection));
}

TEST(DescriptorLimitTest, DescriptorsAbove1024ServeAsWellAlsoWhenMemoryFails) {
    auto occupied = std::make_shared<std::unique_ptr<kvtest::OccupiedDescriptors>>();
    Extras extras;
    extras.beforeFirstJob = [occupied] { *occupied = std::make_unique<kvtest::OccupiedDescriptors>(1100); };
    extras.beforeLaterJobs = [occupied] { occupied->reset(); };
    const Report report = RunOnce({}, extras);
    EXPECT_EQ(Problems({{}}, {report}), "");
    EXPECT_EQ(report.completed, kJobs - 1);
    RunSweep({"operator new, descriptors above 1024", Call::OperatorNew, ENOMEM, kNoReason, 20}, extras);
}

// Attachments.

/// Runs the scenario with an attachment of the right name that `spoil` has done something to.
Report RunWithAttachment(const std::function<void(const std::string&)>& spoil) {
    const kvtest::TempDir folder;
    const std::string path = folder.write("note.bin", "content");
    Extras extras;
    extras.attachment = path;
    extras.attachmentMayBeEmpty = true;
    extras.beforeFirstTick = [&] { spoil(path); };
    return RunOnce({}, extras);
}

void ExpectEmptyPart(const Report& report) {
    EXPECT_EQ(Problems({{}}, {report}), "");
    EXPECT_EQ(report.completed, kJobs - 1);
    EXPECT_TRUE(report.attachmentWasEmpty);
}

TEST(AttachmentTest, OneThatVanishesBeforeItIsSentArrivesEmpty) {
    ExpectEmptyPart(RunWithAttachment([](const std::string& path) { std::filesystem::remove(path); }));
}

TEST(AttachmentTest, AFolderArrivesEmpty) {
    ExpectEmptyPart(RunWithAttachment([](const std::string& path) {
        std::filesystem::remove(path);
        std::filesystem::create_directory(path);
    }));
}

TEST(AttachmentTest, AFifoIsNotOpenedAndArrivesEmpty) {
    ExpectEmptyPart(RunWithAttachment([](const std::string& path) {
        std::filesystem::remove(path);
        ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    }));
}

TEST(AttachmentTest, ADeviceWithoutEndArrivesEmpty) {
    ExpectEmptyPart(RunWithAttachment([](const std::string& path) {
        std::filesystem::remove(path);
        std::filesystem::create_symlink("/dev/zero", path);
    }));
}

TEST(AttachmentTest, OneThatMayNotBeOpenedArrivesEmpty) {
    Extras extras;
    extras.attachmentMayBeEmpty = true;
    ExpectEmptyPart(RunOnce({Call::Open, 1, 1, EACCES}, extras));
}

TEST(AttachmentTest, OneWhoseReadingFailsArrivesEmptyAndTheConnectionStaysInStep) {
    ExpectEmptyPart(RunWithAttachment([](const std::string& path) {
        std::filesystem::remove(path);
        std::filesystem::create_symlink("/proc/self/mem",
                                        path);  // a regular file; its first read fails with EIO
    }));
}

}  // namespace
