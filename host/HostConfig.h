#pragma once

#include <spdlog/common.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "DoubtPolicy.h"
#include "Duration.h"
#include "KvMessageFile.h"
#include "Problem.h"
#include "RetryPolicy.h"

namespace kvhost {

/// One mail account that jobs go through, checked and complete. Immutable value.
struct Carrier {
    std::string name;
    unsigned long id = 0;
    std::string server;  ///< a host name, with a colon and the port when one is configured
    SmtpSecurityType security = SMTP_SECURITY_REQUIRED;
    std::string user;
    std::string password;
    std::string sender;
    std::string caFile;
    std::string certFile;
    std::string keyFile;
    RetryPolicy retry;
    DoubtPolicy onDoubt = DoubtPolicy::Retry;
};

/// How the daemon works. Immutable value.
struct RunSettings {
    Milliseconds tick{200};         ///< between two periodic events while there is nothing to hand over
    int maxUnderWay = 1000;         ///< jobs that are with the driver at the same time
    int slice = 100;                ///< jobs of one carrier that are handed over together, at most
    Milliseconds stopLimit{30000};  ///< what a stop leaves to the jobs that are under way
    Milliseconds cleanUpLimit{
        90000};  ///< for the driver's clean-up; a pool of workers may need 60 s and more
    Milliseconds probeLimit{
        5000};  ///< for the connection that looks whether a carrier in trouble is there again
    Milliseconds keep{604800000};  ///< after which jobs that ended are deleted; 0 to keep them
};

/// What a submission may have. Immutable value.
struct SubmissionLimits {
    std::uint64_t attachmentBytes = 25000000;  ///< of one attachment
    int attachments = 20;
    std::uint64_t textBytes = 1000000;
    int recipients = 100;
};

/// A file that is written line by line and begun anew when it is full. Immutable value.
struct RotatedFile {
    std::string path;  ///< empty: none
    std::uint64_t bytes = 50000000;
    int files = 5;  ///< that are kept, the current one included
};

/// What is offered over HTTP. Immutable value.
struct HttpSettings {
    bool isOn = false;
    std::string address = "127.0.0.1";
    int port = 8025;  ///< 0: any free one, told in the log
    bool takesJobs = false;
    std::string token;  ///< that a submitter shows; set when takesJobs is
    std::uint64_t bodyBytes = 40000000;
};

/// What the configuration file says. Immutable value.
struct HostConfig {
    /// The driver's settings under its own keys, for Configure; only those that are configured.
    std::map<std::string, std::string> driverSettings;
    spdlog::level::level_enum logLevel = spdlog::level::warn;
    std::string logFile;         ///< empty: standard error
    std::uint64_t logBytes = 0;  ///< size at which the log file is begun anew; 0 for no limit
    int logFiles = 5;            ///< that are kept then, the current one included
    std::string driver = "libkvsmtpdriver.so";
    std::string store;  ///< its folder; empty when none is configured
    RunSettings run;
    SubmissionLimits limits;
    RotatedFile deliveryLog;
    HttpSettings http;
    std::map<std::string, Carrier> carriers;
    /// Carriers that the file names but that cannot be used, by name, with the reason.
    std::map<std::string, std::string> refusedCarriers;
    /// One entry for each fault of a carrier.
    std::vector<Problem> problems;
};

}  // namespace kvhost
