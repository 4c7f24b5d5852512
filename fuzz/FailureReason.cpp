// Every reason has a class, and every failure a decision. Input: three numbers as text (attempts, milliseconds of the first
// wait, the share of the jitter in percent), a lasting and a passing text of the carrier, the reason.
#include <cstdlib>

#include "RetryDecision.h"
#include "support/Check.h"
#include "support/HostInputs.h"
#include "support/Input.h"

namespace {

using kvhost::FailureClass;
using kvhost::Milliseconds;

long Number(const std::string& text, long most) {
    return std::labs(std::strtol(text.c_str(), nullptr, 10) % most);
}

std::string Lower(std::string text) {
    for (char& c : text) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return text;
}

bool HasText(const std::string& reason, const std::string& part) {
    return !part.empty() && Lower(reason).find(Lower(part)) != std::string::npos;
}

void CheckSign(const kvhost::FailureSign& sign, const std::string& reason,
               const kvhost::RetryPolicy& policy) {
    KV_FUZZ_CHECK(std::string(kvhost::FailureClassName(sign.failure)).size() >= 7);
    KV_FUZZ_CHECK(kvfuzz::IsVisible(sign.sign));
    KV_FUZZ_CHECK(sign.failure == FailureClass::Unclear || !sign.sign.empty());
    KV_FUZZ_CHECK(kvhost::ClassOf(reason, policy) == sign.failure);
    // The carrier's own texts come first, the lasting one before the passing one.
    if (HasText(reason, policy.lasting[0])) {
        KV_FUZZ_CHECK(sign.failure == FailureClass::Lasting);
    } else if (HasText(reason, policy.passing[0])) {
        KV_FUZZ_CHECK(sign.failure == FailureClass::Passing);
    }
}

void CheckDecision(const kvhost::RetryPolicy& policy, const kvhost::StoredJob& job,
                   const kvhost::FailureSign& sign, double chance) {
    const kvhost::RetryDecision decision =
        kvhost::DecideRetry(policy, job, sign.failure, kvfuzz::Now(), chance, sign.sign);
    KV_FUZZ_CHECK(!decision.words.empty() && kvfuzz::IsVisible(decision.words));
    KV_FUZZ_CHECK(sign.failure != FailureClass::Lasting || !decision.due);
    if (!decision.due) {
        return;
    }
    const Milliseconds wait = *decision.due - kvfuzz::Now();
    const double most = static_cast<double>(policy.longest.count()) * (1 + policy.jitter);
    KV_FUZZ_CHECK(wait.count() >= 1 && static_cast<double>(wait.count()) <= most + 1);
    KV_FUZZ_CHECK(!job.deadline || *decision.due < *job.deadline);
    KV_FUZZ_CHECK(policy.attempts == 0 || job.attempts < policy.attempts);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kvfuzz::Input input(data, size);
    kvhost::StoredJob job;
    job.attempts = 1 + static_cast<int>(Number(input.Piece(), 2000));
    job.submitted = kvfuzz::Now() - Milliseconds(60000);
    kvhost::RetryPolicy policy;
    policy.first = Milliseconds(1 + Number(input.Piece(), 86400000));
    policy.longest = std::max(policy.longest, policy.first);
    const double chance = static_cast<double>(Number(input.Piece(), 101)) / 100;
    policy.jitter = 1 - chance;
    policy.lasting = {input.Piece()};
    policy.passing = {input.Piece()};
    const std::string reason = input.Rest();

    const kvhost::FailureSign sign = kvhost::JudgeFailure(reason, policy);
    CheckSign(sign, reason, policy);
    CheckDecision(policy, job, sign, chance);
    policy.attempts = 10;
    job.deadline = kvfuzz::Now() + Milliseconds(3600000);
    CheckDecision(policy, job, sign, chance);
    return 0;
}
