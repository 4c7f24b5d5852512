// Jobs as JSON Lines: every line that is not blank becomes one job, which is refused or can be sent as it is.
#include <set>
#include <sstream>

#include "InputChecks.h"
#include "JobReader.h"
#include "MailText.h"
#include "Problem.h"
#include "support/Check.h"
#include "support/HostInputs.h"
#include "support/Input.h"

namespace {

std::size_t LinesIn(const std::string& text) {
    std::size_t count = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        count += text.substr(at, end - at).find_first_not_of(" \t\r") == std::string::npos ? 0U : 1U;
        at = end + 1;
    }
    return count;
}

void CheckSendable(const kvhost::Job& job, const kvhost::HostConfig& config) {
    KV_FUZZ_CHECK(!kvhost::WhyNotAName(job.id));
    KV_FUZZ_CHECK(config.carriers.count(job.carrier) == 1);
    KV_FUZZ_CHECK(!job.recipients.empty());
    for (const std::string& recipient : job.recipients) {
        KV_FUZZ_CHECK(!kvhost::WhyNotAnAddress(recipient));
    }
    KV_FUZZ_CHECK(!kvhost::WhyNotOneLine(job.subject) && !kvhost::WhyOnlyAttached(job.text));
    for (const std::string& path : job.attachments) {
        KV_FUZZ_CHECK(!kvhost::WhyNotAReadableFile(path));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const kvhost::HostConfig config = kvfuzz::SmallConfig();
    const std::string text = kvfuzz::Input(data, size).Rest();
    std::istringstream stream(text);
    kvhost::JobReader reader(config);
    reader.Read(stream, "jobs.jsonl");
    KV_FUZZ_CHECK(reader.Jobs().size() == LinesIn(text));
    std::set<std::string> ids;
    for (const kvhost::Job& job : reader.Jobs()) {
        if (!job.IsRefused()) {
            CheckSendable(job, config);
            KV_FUZZ_CHECK(ids.insert(job.id).second);
        }
        for (const kvhost::Problem& problem : job.problems) {
            KV_FUZZ_CHECK(problem.line == job.line && kvfuzz::IsVisible(kvhost::Describe(problem)));
        }
    }
    return 0;
}
