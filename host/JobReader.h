#pragma once

#include <istream>
#include <map>
#include <string>
#include <vector>

#include "HostConfig.h"
#include "Job.h"
#include "JsonObject.h"

namespace kvhost {

/// Reads jobs, one JSON object per line (JSON Lines), and checks them against the carriers of a
/// configuration.
///
/// Every line that is not blank becomes one Job; a line with a fault becomes a refused one and the rest is
/// read on. An identifier may be used once in everything that one reader reads. One thread at a time; refers
/// to the configuration, which must outlive it.
class JobReader {
public:
    explicit JobReader(const HostConfig& config) : m_config(config) {}

    /// Reads the file at `path`, or the standard input for "-". Throws BadInput when it cannot be read.
    /// Paths of attachments are resolved beside the file; beside the current folder for the standard input.
    void ReadFile(const std::string& path);
    /// Reads `stream`; `name` is how messages name it and what attachments are resolved beside.
    void Read(std::istream& stream, const std::string& name);

    /// The jobs in the order of their lines, refused ones included.
    const std::vector<Job>& Jobs() const { return m_vecJobs; }

private:
    Job ReadLine(const std::string& text, const std::string& file, unsigned long line);
    void ReadFields(JsonFields& fields, Job& job);
    void ReadId(JsonFields& fields, Job& job);
    void ReadCarrier(JsonFields& fields, Job& job);
    void ReadRecipients(JsonFields& fields, Job& job);
    void ReadMessage(JsonFields& fields, Job& job);
    void ReadAttachments(JsonFields& fields, Job& job);

    const HostConfig& m_config;
    std::vector<Job> m_vecJobs;
    std::map<std::string, std::string> m_mapIds;  ///< identifier to the place of its first use
};

}  // namespace kvhost
