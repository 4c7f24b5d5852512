// Times and durations: what is written is read back, and any text is a moment or none.
#include "Duration.h"
#include "SubmissionParser.h"
#include "TimeText.h"
#include "support/Check.h"
#include "support/HostInputs.h"
#include "support/Input.h"

namespace {

void CheckTime(const std::string& text) {
    const auto time = kvhost::ParseTime(text);
    if (!time) {
        return;
    }
    // An offset may lead out of the years that are written with four digits, or to before 1970.
    const std::string written = kvhost::TimeText(*time);
    const bool isCommon = written.size() == 24 && written >= "1970";
    KV_FUZZ_CHECK(!isCommon || kvhost::ParseTime(written) == time);
    KV_FUZZ_CHECK(text.size() >= 20);
}

void CheckDuration(const std::string& text) {
    const auto duration = kvhost::ParseDuration(text);
    if (!duration) {
        return;
    }
    KV_FUZZ_CHECK(duration->count() >= 0 && duration->count() <= 3650LL * 86400000);
    KV_FUZZ_CHECK(kvhost::ParseDuration(std::to_string(duration->count()) + "ms") == duration);
    KV_FUZZ_CHECK(text[0] >= '0' && text[0] <= '9');
    const std::string shown = kvhost::DurationText(*duration);
    KV_FUZZ_CHECK(!shown.empty() && shown.size() <= 20);
    KV_FUZZ_CHECK(duration->count() == 0 || kvhost::DurationText(-*duration) == "-" + shown);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = kvfuzz::Input(data, size).Rest();
    CheckTime(text);
    CheckDuration(text);
    std::optional<kvhost::StoreTime> moment;
    const std::string wrong = kvhost::ReadMoment(text, kvfuzz::Now(), moment);
    KV_FUZZ_CHECK(wrong.empty() == moment.has_value() && kvfuzz::IsVisible(wrong));
    return 0;
}
