// Jobs as JSON Lines: every line becomes one job, which is refused or can be sent as it is.
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
    std::set<std::string> ids;
    std::string line;
    for (unsigned long number = 1; std::getline(stream, line); ++number) {
        const kvhost::Job job = reader.Read(line, "jobs.jsonl", number);
        KV_FUZZ_CHECK(job.line == number);
        if (!job.IsRefused()) {
            CheckSendable(job, config);
            KV_FUZZ_CHECK(ids.insert(job.id).second);
        }
        for (const kvhost::Problem& problem : job.problems) {
            KV_FUZZ_CHECK(problem.line == number && kvfuzz::IsVisible(kvhost::Describe(problem)));
        }
    }
    return 0;
}
