#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace acceptedtext {

/// One call of a text function: what goes in and what must come out.
struct Conversion {
    const char* name;
    std::string in;
    std::string out;
};

/// A text that may hold NUL bytes.
template <std::size_t Size>
std::string Bytes(const char (&literal)[Size]) {
    return std::string(literal, Size - 1);
}

/// What `answer` gives in a child process, so that what it changes for the whole process ends with it.
template <typename Answer>
std::string InAChild(Answer answer) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    EXPECT_GE(child, 0);
    if (child == 0) {
        const std::string text = answer();
        const bool written = write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
        _exit(written ? 0 : 1);
    }
    close(ends[1]);
    std::string result;
    char buffer[1024];
    for (ssize_t got = read(ends[0], buffer, sizeof buffer); got > 0;
         got = read(ends[0], buffer, sizeof buffer)) {
        result.append(buffer, static_cast<std::size_t>(got));
    }
    close(ends[0]);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    return result;
}

/// Another local time zone for as long as it lives.
class TimeZone {
public:
    explicit TimeZone(const char* zone) {
        const char* before = std::getenv("TZ");
        m_wasSet = before != nullptr;
        m_before = m_wasSet ? before : "";
        setenv("TZ", zone, 1);
        tzset();
    }
    ~TimeZone() {
        if (m_wasSet) {
            setenv("TZ", m_before.c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;

private:
    bool m_wasSet;
    std::string m_before;
};

}  // namespace acceptedtext
