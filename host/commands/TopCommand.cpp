#include "TopCommand.h"

#include <unistd.h>

#include "CommandOutput.h"
#include "LiveTerminal.h"
#include "StoreJson.h"
#include "TopFrame.h"

namespace kvhost {

namespace {

constexpr Milliseconds kShortest{100};
constexpr Milliseconds kLongest{3600000};

std::string WhyNotAnInterval(const std::string& text) {
    const auto interval = ParseDuration(text);
    return interval && *interval >= kShortest && *interval <= kLongest
               ? ""
               : "expected a duration from 100ms to 1h, such as \"5s\"";
}

}  // namespace

CLI::App* TopCommand::Register(CLI::App& app) {
    CLI::App* top = app.add_subcommand("top", "Watch the store; q ends");
    m_store.Register(*top);
    top->add_option("--interval", m_strInterval, "Time between two looks at the store")
        ->check(WhyNotAnInterval)
        ->capture_default_str();
    top->add_flag("--once", m_bOnce, "One picture, as when standard output is no terminal");
    return top;
}

int TopCommand::Run() {
    StoreDatabase store = m_store.OpenStore();
    if (!m_bOnce && !m_store.IsJson() && ::isatty(STDOUT_FILENO) == 1) {
        RunLive(store);
        return kExitSuccess;
    }
    const StoreFigures figures = ReadFigures(store, StoreNow());
    CommandOutput output;
    output.Write(m_store.IsJson() ? DumpJson(JsonOf(figures)) : TopFrame(figures, {}));
    return output.Conclude(kExitSuccess);
}

void TopCommand::RunLive(StoreDatabase& store) const {
    using Clock = std::chrono::steady_clock;
    LiveTerminal terminal;
    StoreFigures before = ReadFigures(store, StoreNow());
    Clock::time_point looked = Clock::now();
    bool isWatched = terminal.Draw(TopFrame(before, {}) + "\nq ends\n");
    while (isWatched && !terminal.WaitForEnd(Interval())) {
        const StoreFigures figures = ReadFigures(store, StoreNow());
        const Clock::time_point now = Clock::now();
        isWatched =
            terminal.Draw(TopFrame(figures, RatesBetween(before, figures, now - looked)) + "\nq ends\n");
        before = figures;
        looked = now;
    }
}

Milliseconds TopCommand::Interval() const {
    return ParseDuration(m_strInterval).value_or(std::chrono::seconds(1));
}

}  // namespace kvhost
