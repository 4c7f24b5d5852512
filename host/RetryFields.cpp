#include "RetryFields.h"

#include <utility>

namespace kvhost {

namespace {

constexpr Milliseconds kInstant{1};
constexpr Milliseconds kDay{86400000};
constexpr Milliseconds kYear = 365 * kDay;
constexpr int kMostAttempts = 1000000;

void ReadDuration(ConfigTable& fields, std::string_view key, Milliseconds least, Milliseconds most,
                  Milliseconds& value) {
    value = fields.Duration(key, least, most).value_or(value);
}

void ReadCount(ConfigTable& fields, std::string_view key, int& value) {
    value = static_cast<int>(fields.Integer(key, 0, kMostAttempts).value_or(value));
}

void ReadTexts(ConfigTable& fields, std::string_view key, std::vector<std::string>& value) {
    auto texts = fields.Texts(key);
    for (const std::string& text : texts.value_or(std::vector<std::string>{})) {
        if (text.empty()) {
            fields.Refuse(key, "expected parts of reasons, found an empty one, which every reason has");
        }
    }
    value = std::move(texts).value_or(value);
}

}  // namespace

void ReadRetryFields(ConfigTable& fields, RetryPolicy& policy) {
    ReadDuration(fields, "first", kInstant, kDay, policy.first);
    policy.factor = fields.Number("factor", 1, 100).value_or(policy.factor);
    ReadDuration(fields, "longest", kInstant, kYear, policy.longest);
    policy.jitter = fields.Number("jitter", 0, 1).value_or(policy.jitter);
    ReadDuration(fields, "lifetime", Milliseconds(0), kYear, policy.lifetime);
    ReadCount(fields, "attempts", policy.attempts);
    ReadCount(fields, "unclear_attempts", policy.unclearAttempts);
    ReadTexts(fields, "lasting", policy.lasting);
    ReadTexts(fields, "passing", policy.passing);
    if (policy.longest < policy.first) {
        fields.Refuse("longest", "expected at least as long as \"first\", " + DurationText(policy.first));
    }
    fields.RefuseOthers(
        "first, factor, longest, jitter, lifetime, attempts, unclear_attempts, lasting or passing");
}

}  // namespace kvhost
