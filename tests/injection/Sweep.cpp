#include "Sweep.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <system_error>

#include "ScopedDescriptor.h"
#include "TestCertificates.h"

namespace kvinjection {

namespace {

using Clock = std::chrono::steady_clock;
using kvtest::ScopedDescriptor;

/// A child waits for most of its time.
constexpr std::size_t kAtOnce = 4;
/// The bounds inside a run come first; a child that misses this one hangs.
constexpr std::chrono::seconds kChildBound(90);

class Child {
public:
    Child(const kvfault::Rule& rule, const Extras& extras) : m_deadline(Clock::now() + kChildBound) {
        int ends[2];
        if (pipe(ends) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe");
        }
        m_output = ScopedDescriptor(ends[0]);
        const ScopedDescriptor input(ends[1]);
        m_pid = fork();
        if (m_pid == 0) {
            Report(rule, extras, input.get());
        }
    }

    int output() const { return m_output.get(); }

    /// Reads what there is; true when the child has ended.
    bool Read() {
        char buffer[4096];
        const ssize_t count = read(m_output.get(), buffer, sizeof(buffer));
        if (count > 0) {
            m_text.append(buffer, static_cast<std::size_t>(count));
        }
        return count <= 0;
    }

    bool Overdue() const { return Clock::now() > m_deadline; }

    kvinjection::Report End(bool hangs) {
        if (hangs) {
            kill(m_pid, SIGKILL);
        }
        int status = 0;
        waitpid(m_pid, &status, 0);
        const bool whole = m_text.ends_with("end\t\n");
        kvinjection::Report report = whole ? FromText(m_text) : kvinjection::Report();
        if (hangs) {
            report.problems.push_back("hangs");
        } else if (WIFSIGNALED(status)) {
            report.problems.push_back("ended by signal " + std::to_string(WTERMSIG(status)));
        } else if (WEXITSTATUS(status) != 0 || !whole) {
            report.problems.push_back("ended with the status " + std::to_string(WEXITSTATUS(status)));
        }
        return report;
    }

private:
    /// The child's whole life. A sanitizer looks for leaks in std::exit.
    [[noreturn]] static void Report(const kvfault::Rule& rule, const Extras& extras, int output) {
        const std::string text = ToText(RunScenario(rule, extras));
        const bool written = write(output, text.data(), text.size()) == static_cast<ssize_t>(text.size());
        const int status = written ? 0 : 1;
#ifdef KV_SANITIZED
        std::exit(status);
#else
        _exit(status);
#endif
    }

    Clock::time_point m_deadline;
    ScopedDescriptor m_output;
    pid_t m_pid = -1;
    std::string m_text;
};

class Sweeper {
public:
    Sweeper(const std::vector<kvfault::Rule>& rules, const Extras& extras)
        : m_rules(rules), m_extras(extras), m_reports(rules.size()) {}

    std::vector<Report> Run() {
        kvtest::TestCertificates::Shared();  // made once, here, for all children
        std::size_t next = 0;
        while (next < m_rules.size() || !m_children.empty()) {
            while (next < m_rules.size() && m_children.size() < kAtOnce) {
                m_children.emplace(next, Child(m_rules[next], m_extras));
                ++next;
            }
            Attend();
        }
        return m_reports;
    }

private:
    void Attend() {
        std::vector<pollfd> wanted;
        for (const auto& [index, child] : m_children) {
            wanted.push_back({child.output(), POLLIN, 0});
        }
        poll(wanted.data(), wanted.size(), 1000);
        std::size_t position = 0;
        for (auto child = m_children.begin(); child != m_children.end();) {
            const bool readable = wanted[position++].revents != 0;
            const bool ended = readable && child->second.Read();
            const bool hangs = !ended && child->second.Overdue();
            if (ended || hangs) {
                m_reports[child->first] = child->second.End(hangs);
                child = m_children.erase(child);
            } else {
                ++child;
            }
        }
    }

    const std::vector<kvfault::Rule>& m_rules;
    const Extras& m_extras;
    std::vector<Report> m_reports;
    std::map<std::size_t, Child> m_children;
};

}  // namespace

std::vector<Report> RunEach(const std::vector<kvfault::Rule>& rules, const Extras& extras) {
    return Sweeper(rules, extras).Run();
}

Report RunOnce(const kvfault::Rule& rule, const Extras& extras) {
    return RunEach({rule}, extras).front();
}

unsigned long CallsInScenario(kvfault::Call call) {
    return RunOnce({}).calls[kvfault::NameOf(call)];
}

std::vector<unsigned long> Sample(unsigned long calls, unsigned long most) {
    const char* const only = std::getenv("KV_INJECTION_ONLY");
    if (only != nullptr) {
        return {std::strtoul(only, nullptr, 10)};
    }
    const bool full = std::getenv("KV_INJECTION_FULL") != nullptr;
    const unsigned long step = full ? 1 : std::max(1UL, (calls + most - 1) / most);
    std::vector<unsigned long> sample;
    for (unsigned long call = 1; call <= calls; call += step) {
        sample.push_back(call);
    }
    return sample;
}

std::string Summary(const std::string& title, unsigned long calls, const std::vector<Report>& reports) {
    int injected = 0;
    int clean = 0;
    int completed = 0;
    int failed = 0;
    int doubtful = 0;
    int thrown = 0;
    for (const Report& report : reports) {
        injected += report.injected > 0 ? 1 : 0;
        clean += report.problems.empty() ? 1 : 0;
        completed += report.completed;
        failed += report.failed;
        doubtful += report.doubtful;
        thrown += report.thrown;
    }
    return title + ": " + std::to_string(calls) + " calls, " + std::to_string(reports.size()) + " runs, " +
           std::to_string(injected) + " injected, " + std::to_string(clean) + " without a problem; jobs " +
           std::to_string(completed) + " completed, " + std::to_string(failed) + " failed (" +
           std::to_string(doubtful) + " of them though accepted); " + std::to_string(thrown) + " exceptions";
}

std::string Problems(const std::vector<kvfault::Rule>& rules, const std::vector<Report>& reports) {
    std::string text;
    for (std::size_t i = 0; i < reports.size(); ++i) {
        for (const std::string& problem : reports[i].problems) {
            text += std::string(kvfault::NameOf(rules[i].call)) + " #" + std::to_string(rules[i].first) +
                    ": " + problem + "\n";
        }
    }
    return text;
}

}  // namespace kvinjection
