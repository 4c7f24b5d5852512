#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "HostConfig.h"
#include "Job.h"
#include "JsonObject.h"

namespace kvhost {

/// Reads jobs, one JSON object per line (JSON Lines), and checks them against the carriers of a
/// configuration.
///
/// An identifier may be used once in everything that one reader reads. One thread at a time; refers to the
/// configuration, which must outlive it.
class JobReader {
public:
    explicit JobReader(const HostConfig& config) : m_config(config) {}

    /// The job of the line `line` of `file`, `text`; a refused one when the line has a fault. Paths of attachments are
    /// resolved beside the file; beside the current folder for the standard input.
    Job Read(const std::string& text, const std::string& file, unsigned long line);

private:
    struct Place {
        std::size_t file = 0;  ///< in m_vecFiles
        unsigned long line = 0;
    };

    void ReadFields(JsonFields& fields, Job& job);
    void ReadId(JsonFields& fields, Job& job);
    void ReadCarrier(JsonFields& fields, Job& job);
    void ReadRecipients(JsonFields& fields, Job& job);
    void ReadMessage(JsonFields& fields, Job& job);
    void ReadAttachments(JsonFields& fields, Job& job);

    const HostConfig& m_config;
    std::vector<std::string> m_vecFiles;              ///< those read from so far
    std::unordered_map<std::string, Place> m_mapIds;  ///< identifier to the place of its first use
};

}  // namespace kvhost
