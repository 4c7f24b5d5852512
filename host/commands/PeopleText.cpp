#include "PeopleText.h"

#include <array>
#include <cstdio>
#include <ctime>

#include "Duration.h"
#include "TimeText.h"

namespace kvhost {

std::string LocalTime(StoreTime time) {
    const std::int64_t seconds = std::chrono::floor<std::chrono::seconds>(time).time_since_epoch().count();
    const auto clock = static_cast<std::time_t>(seconds);
    std::tm parts{};
    // A 32-bit clock ends in 2038.
    if (static_cast<std::int64_t>(clock) != seconds || ::localtime_r(&clock, &parts) == nullptr) {
        return TimeText(time);
    }
    std::array<char, 64> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts);
    return text.data();
}

std::string Ago(StoreTime time, StoreTime now) {
    const Milliseconds age = now - time;
    if (age < Milliseconds(0)) {
        return "in " + DurationText(-age);
    }
    return age < std::chrono::seconds(1) ? "just now" : DurationText(age) + " ago";
}

std::string MomentText(StoreTime time, StoreTime now) {
    return time > now ? Ago(time, now) + ", at " + LocalTime(time) : LocalTime(time) + ", " + Ago(time, now);
}

std::string SizeText(std::uint64_t bytes) {
    static constexpr std::array<const char*, 5> kUnits{"kB", "MB", "GB", "TB", "PB"};
    if (bytes < 1000) {
        return std::to_string(bytes) + " B";
    }
    double value = static_cast<double>(bytes) / 1000;
    std::size_t unit = 0;
    // What would be rounded to 1000.0 belongs to the next unit.
    for (; value >= 999.95 && unit + 1 < kUnits.size(); ++unit) {
        value /= 1000;
    }
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.1f %s", value, kUnits[unit]);
    return text.data();
}

std::string Counted(std::int64_t number, const std::string& what) {
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

}  // namespace kvhost
