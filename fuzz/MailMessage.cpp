// Mails that are handed in: any message becomes a draft, and a draft without faults is one that can be sent.
#include <set>

#include "MailAddresses.h"
#include "MailReader.h"
#include "support/Check.h"
#include "support/Input.h"
#include "support/SubmissionCheck.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const kvhost::HostConfig config = kvfuzz::SmallConfig();
    const std::string message = kvfuzz::Input(data, size).Rest();
    kvhost::SubmissionDraft draft = kvhost::ReadMail(message);
    std::set<std::string> seen;
    for (const std::string& recipient : draft.submission.recipients) {
        KV_FUZZ_CHECK(seen.insert(kvhost::ComparableAddress(recipient)).second);
    }
    for (const kvhost::AttachmentSource& source : draft.attachments) {
        KV_FUZZ_CHECK(source.path.empty() && source.name.find_first_of("/\\\"") == std::string::npos);
    }
    draft.submission.id = "id";
    draft.submission.carrier = "alarms";
    kvhost::CheckSubmission(draft, config, kvfuzz::Now());
    kvfuzz::CheckDraft(draft, config);
    return 0;
}
