// Bodies of POST /v1/jobs, and the same objects as they are handed in locally.
#include "SubmissionBody.h"

#include "JsonObject.h"
#include "support/Check.h"
#include "support/Input.h"
#include "support/SubmissionCheck.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const kvhost::HostConfig config = kvfuzz::SmallConfig();
    const std::string text = kvfuzz::Input(data, size).Rest();
    const kvhost::SubmissionBody body = kvhost::ReadSubmissionBody(text);
    KV_FUZZ_CHECK(body.wrong.empty() ? !body.submissions.empty() : kvfuzz::IsVisible(body.wrong));
    KV_FUZZ_CHECK(body.submissions.size() <= 1000 || !body.wrong.empty());
    for (const nlohmann::json& object : body.submissions) {
        using kvhost::SubmissionOrigin;
        const auto remote = kvhost::ParseSubmission(object, config, SubmissionOrigin::Remote, kvfuzz::Now());
        kvfuzz::CheckDraft(remote, config);
        // What comes over the network names no file of this machine.
        for (const kvhost::AttachmentSource& source : remote.attachments) {
            KV_FUZZ_CHECK(remote.IsRefused() || source.path.empty());
        }
        const auto local = kvhost::ParseSubmission(object, config, SubmissionOrigin::Local, kvfuzz::Now());
        kvfuzz::CheckDraft(local, config);
        KV_FUZZ_CHECK(remote.IsRefused() || !local.IsRefused());
    }
    const kvhost::ParsedObject line = kvhost::ParseJsonObject(text);
    KV_FUZZ_CHECK(line.wrong ? kvfuzz::IsVisible(*line.wrong) : line.object.is_object());
    return 0;
}
