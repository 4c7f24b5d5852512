#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "HostConfig.h"
#include "StoredJob.h"

namespace kvhost {

/// An attachment before it is in the store: a file, or the content itself. Immutable value.
struct AttachmentSource {
    std::string name;     ///< that the recipient sees; empty: the file's own
    std::string path;     ///< of a file; empty: the content is given
    std::string content;  ///< the bytes themselves
};

/// A submission as it was handed in, with what is wrong with it.
struct SubmissionDraft {
    struct Fault {
        std::string field;
        std::string text;  ///< what was expected, and what to do
    };

    Submission submission;  ///< without its attachments
    std::vector<AttachmentSource> attachments;
    std::vector<Fault> faults;

    bool IsRefused() const { return !faults.empty(); }
};

/// Who hands in: what is on this machine may name files, what comes over the network may not.
enum class SubmissionOrigin { Local, Remote };

/// Reads one submission from a JSON object and checks it against the configuration: every fault names its field. An
/// absent id gets a random one.
SubmissionDraft ParseSubmission(const nlohmann::json& object, const HostConfig& config,
                                SubmissionOrigin origin, StoreTime now);

/// The checks alone, for a draft that was made otherwise: adds what is wrong to its faults.
void CheckSubmission(SubmissionDraft& draft, const HostConfig& config, StoreTime now);

}  // namespace kvhost
