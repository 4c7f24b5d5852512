#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "StoreTime.h"

namespace kvhost {

/// Where a job stands. The numbers are stored: a value is never given another meaning.
enum class JobState {
    Queued = 0,      ///< waits for its time
    HandedOver = 1,  ///< with the driver; its open attempt is on disk
    Delivered = 2,
    Failed = 3,
    InDoubt = 4,  ///< was with the driver when the host ended; an operator decides
    Held = 5,     ///< an operator, or the rule of three crashes, keeps it back
    Cancelled = 6
};

inline constexpr int kJobStateCount = 7;

/// How an attempt ended. The numbers are stored.
enum class AttemptOutcome {
    Delivered = 0,
    Failed = 1,   ///< came back failed, or was not accepted by the driver
    InDoubt = 2,  ///< never came back: the message may have been delivered
};

/// "queued", "handed over", "delivered", "failed", "in doubt", "held", "cancelled".
const char* JobStateName(JobState state);
/// The state of that name; nothing for any other text.
std::optional<JobState> ParseJobState(const std::string& name);
/// "delivered", "failed", "in doubt".
const char* AttemptOutcomeName(AttemptOutcome outcome);

/// True for Delivered, Failed and Cancelled: nothing more happens to the job by itself.
bool IsFinal(JobState state);

/// A file kept by the AttachmentStore. Immutable value.
struct StoredAttachment {
    std::string name;        ///< the file name that the recipient sees
    std::string digest;      ///< SHA-256 of the content, 64 lower-case hexadecimal digits
    std::uint64_t size = 0;  ///< bytes
};

/// What a submitter hands in: one message to one or more recipients through one carrier. Checked by the caller.
struct Submission {
    std::string id;  ///< the submitter's own, and the key under which a repetition is recognised
    std::string carrier;
    std::vector<std::string> recipients;
    std::string subject;
    std::string text;
    std::vector<StoredAttachment> attachments;
    bool isUrgent = false;
    std::optional<StoreTime> notBefore;  ///< not handed over before
    std::optional<StoreTime> deadline;   ///< no attempt begins at or after this moment
};

/// One message to one recipient: what is queued, handed over and ends. The job of a submission "ID" to one recipient
/// is called "ID"; those to several are "ID/1", "ID/2" and so on.
struct StoredJob {
    std::int64_t key = 0;  ///< its key in the store, ascending in the order of submission
    std::string id;
    std::string carrier;
    std::string recipient;
    std::string subject;
    JobState state = JobState::Queued;
    bool isUrgent = false;
    StoreTime submitted;
    StoreTime changed;  ///< when the state was last set
    StoreTime due;      ///< when the next attempt may begin; meaningful while queued
    std::optional<StoreTime> deadline;
    int attempts = 0;      ///< begun so far
    int crashes = 0;       ///< ends of the host while the job was with the driver
    std::string reason;    ///< of the last attempt or of the operator; empty for none
    std::string decision;  ///< why the job stands where it stands, in words; empty for none
};

/// What is handed to the driver for a job.
struct JobContent {
    std::string subject;
    std::string text;
    std::vector<StoredAttachment> attachments;
};

/// One hand-over of a job to the driver.
struct Attempt {
    int number = 0;  ///< from 1
    StoreTime begun;
    std::optional<StoreTime> ended;         ///< nothing while the job is with the driver
    std::optional<AttemptOutcome> outcome;  ///< likewise
    std::string reason;
    std::string decision;  ///< what was decided about the job then, in words
};

/// One thing that happened to a job besides its attempts: submitted, held, released, cancelled, …
struct JobEvent {
    StoreTime at;
    std::string text;
};

/// All that is known of one job.
struct JobHistory {
    StoredJob job;
    std::string text;
    std::vector<StoredAttachment> attachments;
    std::vector<Attempt> attempts;  ///< oldest first
    std::vector<JobEvent> events;   ///< oldest first
};

}  // namespace kvhost
