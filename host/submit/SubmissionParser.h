#pragma once

#include <nlohmann/json.hpp>
#include <optional>
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
        std::string field;  ///< empty when the submission as a whole is meant
        std::string text;   ///< what was expected, and what to do
    };

    Submission submission;  ///< without its attachments
    std::vector<AttachmentSource> attachments;
    std::vector<Fault> faults;

    bool IsRefused() const { return !faults.empty(); }
};

/// "FIELD: TEXT", or the text alone.
std::string Describe(const SubmissionDraft::Fault& fault);

/// Who hands in: what is on this machine may name files, what comes over the network may not.
enum class SubmissionOrigin { Local, Remote };

/// Reads one submission from a JSON object and checks it against the configuration: every fault names its field. An
/// absent id gets a random one.
SubmissionDraft ParseSubmission(const nlohmann::json& object, const HostConfig& config,
                                SubmissionOrigin origin, StoreTime now);

/// Reads a moment, an RFC 3339 time or a duration from `now` on, into `time`. Answers what is wrong with any other
/// text, empty for nothing.
std::string ReadMoment(const std::string& text, StoreTime now, std::optional<StoreTime>& time);

/// The checks alone, for a draft that was made otherwise: adds what is wrong to its faults. A field that has a fault
/// already gets no other.
void CheckSubmission(SubmissionDraft& draft, const HostConfig& config, StoreTime now);

/// A random identifier of 128 bits, as 32 hexadecimal digits. Any thread.
std::string NewSubmissionId();

}  // namespace kvhost
