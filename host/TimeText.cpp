#include "TimeText.h"

#include <array>
#include <cstdio>
#include <cstdlib>

namespace kvhost {

namespace {

using Days = std::chrono::sys_days;

/// Reads a text from its front to its end.
class Scanner {
public:
    explicit Scanner(std::string_view text) : m_text(text) {}

    /// A number of exactly `digits` digits, between `least` and `most`; -1 for anything else.
    int Number(std::size_t digits, int least, int most) {
        int number = 0;
        for (std::size_t i = 0; i < digits; ++i) {
            const char c = Next();
            if (c < '0' || c > '9') {
                return Fail();
            }
            number = number * 10 + (c - '0');
        }
        return number < least || number > most ? Fail() : number;
    }

    /// Takes one of the characters `expected`.
    char One(std::string_view expected) {
        const char c = Next();
        if (c == '\0' || expected.find(c) == std::string_view::npos) {
            Fail();
        }
        return c;
    }

    bool Is(char c) const { return !m_text.empty() && m_text.front() == c; }
    bool IsDigit() const { return !m_text.empty() && m_text.front() >= '0' && m_text.front() <= '9'; }
    bool IsDone() const { return m_bGood && m_text.empty(); }

private:
    char Next() {
        if (m_text.empty()) {
            Fail();
            return '\0';
        }
        const char c = m_text.front();
        m_text.remove_prefix(1);
        return c;
    }
    int Fail() {
        m_bGood = false;
        return -1;
    }

    std::string_view m_text;
    bool m_bGood = true;
};

int Fraction(Scanner& scanner) {
    int milliseconds = 0;
    int weight = 100;
    if (scanner.Is('.')) {
        scanner.One(".");
        do {
            milliseconds += weight * scanner.Number(1, 0, 9);
            weight /= 10;
        } while (weight > 0 && scanner.IsDigit());
    }
    return milliseconds;
}

std::chrono::minutes Offset(Scanner& scanner) {
    const char sign = scanner.One("Zz+-");
    if (sign != '+' && sign != '-') {
        return std::chrono::minutes(0);
    }
    const int hours = scanner.Number(2, 0, 23);
    scanner.One(":");
    const int minutes = scanner.Number(2, 0, 59);
    return std::chrono::minutes((sign == '-' ? -1 : 1) * (hours * 60 + minutes));
}

}  // namespace

std::string TimeText(StoreTime time) {
    const Days day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss<std::chrono::milliseconds> clock(time - day);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ",
                  static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                  static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()),
                  static_cast<int>(clock.subseconds().count()));
    return text.data();
}

std::optional<StoreTime> ParseTime(std::string_view text) {
    Scanner scanner(text);
    const int year = scanner.Number(4, 1970, 9999);
    scanner.One("-");
    const int month = scanner.Number(2, 1, 12);
    scanner.One("-");
    const int day = scanner.Number(2, 1, 31);
    scanner.One("Tt ");
    const int hour = scanner.Number(2, 0, 23);
    scanner.One(":");
    const int minute = scanner.Number(2, 0, 59);
    scanner.One(":");
    const int second = scanner.Number(2, 0, 59);
    const int millisecond = Fraction(scanner);
    const std::chrono::minutes offset = Offset(scanner);
    if (!scanner.IsDone()) {
        return std::nullopt;
    }
    const std::chrono::year_month_day date{std::chrono::year(year),
                                           std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day))};
    if (!date.ok()) {
        return std::nullopt;
    }
    return StoreTime(Days(date)) + std::chrono::hours(hour) + std::chrono::minutes(minute) - offset +
           std::chrono::seconds(second) + std::chrono::milliseconds(millisecond);
}

}  // namespace kvhost
