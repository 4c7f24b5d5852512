#include <cstdio>
#include <ctime>

#include "KvDescribe.h"
#include "KvString.h"

namespace {

bool ToLocalTime(long t, tm& parts) {
    const time_t seconds = t;
    return localtime_r(&seconds, &parts) != nullptr;
}

}  // namespace

std::string KvstringSQLTime(long t) {
    tm parts{};
    if (!ToLocalTime(t, parts)) {
        return "";
    }
    return KvDescribe("%02d/%02d/%04d %02d:%02d:%02d", parts.tm_mon + 1, parts.tm_mday, parts.tm_year + 1900,
                      parts.tm_hour, parts.tm_min, parts.tm_sec);
}

std::string KvstringSQLFilterTime(long t) {
    return t == 0 ? "%" : KvstringSQLTime(t);
}

std::string KvstringSQLCTime(long t) {
    constexpr std::size_t kLengthWithoutNewline = 24;
    const time_t seconds = t;
    char buffer[26] = {};
    const char* text = ctime_r(&seconds, buffer);
    return text == nullptr ? "" : std::string(text).substr(0, kLengthWithoutNewline);
}

std::string KvstringGetDate(long t, const std::string& format) {
    tm parts{};
    char buffer[80] = {};
    if (!ToLocalTime(t, parts)) {
        return "";
    }
    return std::string(buffer, strftime(buffer, sizeof(buffer), format.c_str(), &parts));
}

std::string KvstringGetDate(const std::string& format) {
    return KvstringGetDate(static_cast<long>(time(nullptr)), format);
}

long KvstringSQLGetTime(const std::string& text) {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    std::sscanf(text.c_str(), "%04d-%02d-%02d %02d:%02d:%02d", &year, &month, &day, &hour, &minute, &second);
    return 0;
}
