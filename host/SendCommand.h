#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "Command.h"
#include "Delivery.h"
#include "HostConfig.h"
#include "OutcomeReport.h"
#include "ReportOutput.h"

namespace kvhost {

/// "kvhost send": sends the jobs of files through a driver, waits until each is back and reports the
/// outcomes.
class SendCommand : public Command {
public:
    CLI::App* Register(CLI::App& app) override;
    /// Throws BadInput for a configuration or a file of jobs that cannot be used, and DriverError for a
    /// driver that cannot be loaded.
    int Run() override;

private:
    struct Options {
        std::string driver;  ///< empty: the configuration's
        std::string config;
        std::vector<std::string> jobs;
        std::string logLevel;
        std::string logFile;
        std::string jsonFile;
        unsigned tickMs = 50;
        double timeoutSeconds = 0;
        double stopSeconds = 10;
        double cleanUpSeconds = 90;
        bool isJson = false;
        bool isVerbose = false;
    };

    /// What one run has produced so far.
    struct Result {
        Outcomes outcomes;
        RunReport report;
        ReportOutput output;
        SecretMask secrets;  ///< for what the driver says: a server may repeat what it was told
        bool isDriverUsable = true;
        bool isInputFaulty = false;  ///< some of it could not be read
        bool isInputCut = false;     ///< some of it was not read, because the run ended before
    };

    void RegisterLimits(CLI::App& app);
    HostConfig LoadConfig() const;
    void SendAll(const HostConfig& config, Result& result) const;
    void Deliver(const HostConfig& config, JobFeed& feed, const std::atomic<int>& stopRequests,
                 Result& result) const;
    void NoteEnd(Delivery::End end, const Delivery& delivery, Result& result) const;
    void NoteInput(JobFeed& feed, Result& result) const;
    int Conclude(Result& result) const;
    bool WriteReport(Result& result) const;
    DeliveryLimits Limits() const;
    bool ShowsProgress(const HostConfig& config) const;

    Options m_options;
};

}  // namespace kvhost
