#include "SendCommand.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iostream>

#include "ConfigReader.h"
#include "ExitStatus.h"
#include "JobFeed.h"
#include "LogLevel.h"
#include "LogSink.h"
#include "ProgressLine.h"
#include "SignalWatch.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

void TellFault(const std::string& text) {
    std::cerr << "kvhost: " << MakeVisible(text) << std::endl;
}

void TellProblems(const std::vector<Problem>& problems) {
    for (const Problem& problem : problems) {
        TellFault(Describe(problem));
    }
}

std::string WhyNotALogLevel(const std::string& name) {
    return ParseLogLevel(name) ? "" : std::string("expected ") + kLogLevelNames;
}

bool WriteFile(const std::string& path, const std::string& text) {
    std::ofstream stream(path, std::ios::binary);
    stream << text;
    stream.close();
    return stream.good();
}

std::chrono::milliseconds FromSeconds(double seconds) {
    return std::chrono::milliseconds(std::llround(seconds * 1000));
}

SecretMask MaskFor(const HostConfig& config) {
    std::vector<SecretMask::Account> accounts;
    for (const auto& [name, carrier] : config.carriers) {
        accounts.push_back({carrier.user, carrier.password});
    }
    return SecretMask(accounts);
}

}  // namespace

CLI::App* SendCommand::Register(CLI::App& app) {
    CLI::App* send = app.add_subcommand("send", "Send jobs through a driver and report their outcomes");
    send->add_option("jobs", m_options.jobs, "Files of jobs, one JSON object per line; - for standard input")
        ->required();
    send->add_option("--config", m_options.config, "Configuration file (TOML)")->required();
    send->add_option("--driver", m_options.driver, "Driver library to load, instead of the configuration's");
    send->add_option("--log-level", m_options.logLevel, std::string("Level of the log: ") + kLogLevelNames)
        ->check(WhyNotALogLevel);
    send->add_option("--log-file", m_options.logFile,
                     "File that the log is appended to, instead of standard error");
    RegisterLimits(*send);
    send->add_flag("--json", m_options.isJson, "Report as one JSON document instead of a table");
    send->add_option("--json-file", m_options.jsonFile, "File that receives the JSON report besides");
    send->add_flag("--verbose", m_options.isVerbose, "Log each step: a log level of info at least");
    return send;
}

void SendCommand::RegisterLimits(CLI::App& app) {
    constexpr double kDay = 86400;
    app.add_option("--tick", m_options.tickMs, "Milliseconds between two periodic events")
        ->check(CLI::Range(1U, 60000U))
        ->capture_default_str();
    app.add_option("--timeout", m_options.timeoutSeconds,
                   "Seconds, also with a fraction, until what is not back is given up; 0: none")
        ->check(CLI::Range(0.0, kDay))
        ->capture_default_str();
    app.add_option("--stop-limit", m_options.stopSeconds,
                   "Seconds that a stop signal leaves to what is under way")
        ->check(CLI::Range(0.0, kDay))
        ->capture_default_str();
    app.add_option("--cleanup-limit", m_options.cleanUpSeconds,
                   "Seconds that the driver has for its clean-up")
        ->check(CLI::Range(0.0, kDay))
        ->capture_default_str();
}

int SendCommand::Run() {
    if (std::count(m_options.jobs.begin(), m_options.jobs.end(), "-") > 1) {
        throw BadInput("jobs: standard input can be read once only");
    }
    const HostConfig config = LoadConfig();
    Result result{{}, {}, {}, MaskFor(config)};
    result.report.carrierProblems = config.problems;
    SendAll(config, result);
    return Conclude(result);
}

HostConfig SendCommand::LoadConfig() const {
    HostConfig config = ReadConfig(m_options.config);
    TellProblems(config.problems);
    if (m_options.isVerbose) {
        config.logLevel = std::min(config.logLevel, spdlog::level::info);
    }
    config.logLevel = ParseLogLevel(m_options.logLevel).value_or(config.logLevel);
    if (!m_options.logFile.empty()) {
        config.logFile = m_options.logFile;
    }
    if (!m_options.driver.empty()) {
        config.driver = m_options.driver;
    }
    return config;
}

// The signals are blocked first, so that every thread that is started begins with them blocked.
void SendCommand::SendAll(const HostConfig& config, Result& result) const {
    SignalWatch signals;
    JobFeed feed(m_options.jobs, config, result.outcomes);
    std::atomic<int> stopRequests{0};
    const auto onStop = [&] {
        if (++stopRequests == 1) {
            feed.Stop();
        } else {
            feed.Abort();
        }
    };
    const auto work = [&] {
        if (feed.WaitForJobs()) {
            Deliver(config, feed, stopRequests, result);
        }
        feed.WaitUntilRead();
    };
    try {
        signals.RunWatched(work, onStop);
    } catch (...) {
        TellProblems(feed.TakeProblems());
        throw;
    }
    NoteInput(feed, result);
}

void SendCommand::Deliver(const HostConfig& config, JobFeed& feed, const std::atomic<int>& stopRequests,
                          Result& result) const {
    const bool showsProgress = ShowsProgress(config);
    LogSink log(OpenLog(config.logLevel, config.logFile, showsProgress), result.secrets);
    ProgressLine progress(std::cerr, showsProgress);
    DriverLibrary library(config.driver);
    Delivery delivery(library, feed, result.outcomes, log, config, Limits(), stopRequests);
    const Delivery::End end = delivery.Run([&](const Tally& tally) {
        if (const std::vector<Problem> problems = feed.TakeProblems(); !problems.empty()) {
            progress.Wipe();
            TellProblems(problems);
        }
        progress.Show(tally);
    });
    progress.Wipe();
    log.Flush();
    NoteEnd(end, delivery, result);
    if (end == Delivery::End::Stuck) {
        feed.WaitUntilRead();
        NoteInput(feed, result);
        std::_Exit(Conclude(result));
    }
}

void SendCommand::NoteInput(JobFeed& feed, Result& result) const {
    TellProblems(feed.TakeProblems());
    for (const std::string& fault : feed.Faults()) {
        result.isInputFaulty = true;
        TellFault(fault);
    }
    for (const std::string& name : feed.CutShort()) {
        result.isInputCut = true;
        TellFault(name + ": not read to its end");
    }
}

void SendCommand::NoteEnd(Delivery::End end, const Delivery& delivery, Result& result) const {
    result.isDriverUsable = end != Delivery::End::NotStarted;
    result.report.driver = delivery.DriverDescription();
    result.report.error = end == Delivery::End::Stuck
                              ? "the driver does not return; ending without its clean-up"
                              : result.secrets.Apply(delivery.Error());
    if (!result.report.error.empty()) {
        TellFault(result.report.error);
    }
}

int SendCommand::Conclude(Result& result) const {
    RunReport& report = result.report;
    result.outcomes.Close();
    report.tally = result.outcomes.Count();
    report.outcomes = result.outcomes.TakeAll();
    for (Outcome& outcome : report.outcomes) {
        outcome.reason = result.secrets.Apply(outcome.reason);
    }
    report.exitStatus = ExitStatus(
        report.tally, !report.carrierProblems.empty() || !result.isDriverUsable || result.isInputFaulty);
    if (result.isInputCut) {
        report.exitStatus = std::max(report.exitStatus, kExitSomeFailed);
    }
    return WriteReport(result) ? report.exitStatus : std::max(report.exitStatus, kExitSomeFailed);
}

bool SendCommand::WriteReport(Result& result) const {
    const RunReport& report = result.report;
    bool isWritten = true;
    if (!m_options.jsonFile.empty() && !WriteFile(m_options.jsonFile, FormatJson(report))) {
        TellFault("the report cannot be written to " + m_options.jsonFile);
        isWritten = false;
    }
    if (!result.output.Write(m_options.isJson ? FormatJson(report) : FormatTable(report))) {
        TellFault("the report cannot be written to standard output");
        isWritten = false;
    }
    return isWritten;
}

DeliveryLimits SendCommand::Limits() const {
    DeliveryLimits limits;
    limits.tick = std::chrono::milliseconds(m_options.tickMs);
    limits.overall = FromSeconds(m_options.timeoutSeconds);
    limits.afterStop = FromSeconds(m_options.stopSeconds);
    limits.cleanUp = FromSeconds(m_options.cleanUpSeconds);
    return limits;
}

/// A progress line makes sense on a terminal, and only while the log does not scroll past it.
bool SendCommand::ShowsProgress(const HostConfig& config) const {
    const bool isLogQuiet = !config.logFile.empty() || config.logLevel > spdlog::level::info;
    return isLogQuiet && ::isatty(STDERR_FILENO) == 1;
}

}  // namespace kvhost
