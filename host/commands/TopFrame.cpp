#include "TopFrame.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "PeopleText.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

double Rate(const StateCounts& before, const StateCounts& after, JobState state,
            std::chrono::duration<double> took) {
    const std::int64_t more = CountOf(after, state) - CountOf(before, state);
    return static_cast<double>(std::max<std::int64_t>(more, 0)) / took.count();
}

std::string RateText(double rate) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.1f", rate);
    return text.data();
}

std::string RatesText(const std::map<std::string, EndRates>& rates) {
    if (rates.empty()) {
        return "at the next look";
    }
    EndRates total;
    for (const auto& [carrier, rate] : rates) {
        total.delivered += rate.delivered;
        total.failed += rate.failed;
    }
    return RateText(total.delivered) + " delivered, " + RateText(total.failed) + " failed";
}

std::string DecisionsText(const StateCounts& total) {
    const std::int64_t inDoubt = CountOf(total, JobState::InDoubt);
    const std::int64_t held = CountOf(total, JobState::Held);
    if (inDoubt + held == 0) {
        return "nothing";
    }
    return std::to_string(inDoubt) + " in doubt, " + std::to_string(held) +
           " held: kvhost list --state in-doubt, kvhost list --state held";
}

TextTable CarrierTable(const StoreFigures& figures, const std::map<std::string, EndRates>& rates) {
    constexpr auto kRight = TextTable::Align::Right;
    TextTable table({{"CARRIER"},
                     {"QUEUED", kRight},
                     {"HANDED OVER", kRight},
                     {"IN DOUBT", kRight},
                     {"HELD", kRight},
                     {"DELIVERED", kRight},
                     {"FAILED", kRight},
                     {"DELIVERED/S", kRight},
                     {"FAILED/S", kRight}});
    for (const auto& [carrier, counts] : figures.carriers) {
        std::vector<std::string> row{carrier};
        for (const JobState state : {JobState::Queued, JobState::HandedOver, JobState::InDoubt,
                                     JobState::Held, JobState::Delivered, JobState::Failed}) {
            row.push_back(std::to_string(CountOf(counts, state)));
        }
        const auto rate = rates.find(carrier);
        row.push_back(rate == rates.end() ? "-" : RateText(rate->second.delivered));
        row.push_back(rate == rates.end() ? "-" : RateText(rate->second.failed));
        table.Add(row);
    }
    return table;
}

}  // namespace

std::map<std::string, EndRates> RatesBetween(const StoreFigures& before, const StoreFigures& after,
                                             std::chrono::duration<double> took) {
    std::map<std::string, EndRates> rates;
    if (took.count() <= 0) {
        return rates;
    }
    static const StateCounts kNone;
    for (const auto& [carrier, counts] : after.carriers) {
        const auto found = before.carriers.find(carrier);
        const StateCounts& earlier = found == before.carriers.end() ? kNone : found->second;
        rates[carrier] = {Rate(earlier, counts, JobState::Delivered, took),
                          Rate(earlier, counts, JobState::Failed, took)};
    }
    return rates;
}

std::string TopFrame(const StoreFigures& figures, const std::map<std::string, EndRates>& rates) {
    const TextTable table = CarrierTable(figures, rates);
    return "kvhost top   " + LocalTime(figures.at) + "   " + MakeVisible(figures.folder.string()) +
           "   host " + (figures.isHostRunning ? "running" : "NOT running") + "\n\n" + "Oldest queued     " +
           OldestQueuedText(figures) + "\n" + "Each second       " + RatesText(rates) + "\n" +
           "Needs a decision  " + DecisionsText(figures.Total()) + "\n\n" +
           (table.IsEmpty() ? "no jobs\n" : table.Text());
}

}  // namespace kvhost
