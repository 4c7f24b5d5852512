#include "Duration.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <utility>

namespace kvhost {

namespace {

constexpr std::int64_t kSecond = 1000;
constexpr std::int64_t kMinute = 60 * kSecond;
constexpr std::int64_t kHour = 60 * kMinute;
constexpr std::int64_t kDay = 24 * kHour;
constexpr std::int64_t kMost = 3650 * kDay;

constexpr std::array<std::pair<std::string_view, std::int64_t>, 5> kUnits{
    {{"ms", 1}, {"s", kSecond}, {"m", kMinute}, {"h", kHour}, {"d", kDay}}};

/// "VALUE UNIT", and the rest in the next smaller unit unless it is 0.
std::string InTwoUnits(std::int64_t value, std::int64_t unit, const char* name, std::int64_t smaller,
                       const char* smallerName) {
    const std::string text = std::to_string(value / unit) + " " + name;
    const std::int64_t rest = value % unit / smaller;
    return rest == 0 ? text : text + " " + std::to_string(rest) + " " + smallerName;
}

std::string Seconds(std::int64_t value) {
    const std::string text = std::to_string(value / kSecond);
    const std::int64_t tenths = value % kSecond / 100;
    return text + (tenths == 0 || value >= 10 * kSecond ? "" : "." + std::to_string(tenths)) + " s";
}

std::string PositiveText(std::int64_t value) {
    if (value < kSecond) {
        return std::to_string(value) + " ms";
    }
    if (value < kMinute) {
        return Seconds(value);
    }
    if (value < kHour) {
        return InTwoUnits(value, kMinute, "min", kSecond, "s");
    }
    if (value < kDay) {
        return InTwoUnits(value, kHour, "h", kMinute, "min");
    }
    return InTwoUnits(value, kDay, "d", kHour, "h");
}

}  // namespace

std::optional<Milliseconds> ParseDuration(std::string_view text) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || text.front() == '-') {
        return std::nullopt;
    }
    const std::string_view unit = text.substr(static_cast<std::size_t>(end - text.data()));
    for (const auto& [name, factor] : kUnits) {
        if (unit == name && number <= kMost / factor) {
            return Milliseconds(number * factor);
        }
    }
    return std::nullopt;
}

std::string DurationText(Milliseconds duration) {
    const std::int64_t value = duration.count();
    return value < 0 ? "-" + PositiveText(-value) : PositiveText(value);
}

}  // namespace kvhost
