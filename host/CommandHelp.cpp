#include "CommandHelp.h"

#include <algorithm>
#include <numeric>

namespace kvhost {

namespace {

struct Group {
    const char* title;
    std::vector<std::string> commands;
};

const std::vector<Group>& Groups() {
    static const std::vector<Group> kGroups{
        {"Sending", {"run", "submit", "send"}},
        {"Looking", {"list", "show", "stats", "top"}},
        {"Acting on jobs", {"retry", "hold", "release", "cancel", "purge"}},
        {"Checking", {"config", "carrier", "fsck"}},
    };
    return kGroups;
}

/// How many characters have to be put in, taken out or replaced to make one text of the other.
std::size_t Distance(const std::string& one, const std::string& other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= one.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= other.size(); ++j) {
            const std::size_t replaced = diagonal + (one[i - 1] == other[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row.back();
}

/// The command that `name` is most likely meant for; empty when none is near.
std::string NearestCommand(const CLI::App& app, const std::string& name) {
    std::size_t least = 3;
    std::string nearest;
    for (const CLI::App* command : app.get_subcommands({})) {
        const std::size_t distance = Distance(name, command->get_name());
        if (distance < least) {
            least = distance;
            nearest = command->get_name();
        }
    }
    return nearest;
}

}  // namespace

void ArrangeHelp(CLI::App& app) {
    for (const Group& group : Groups()) {
        for (CLI::App* command : app.get_subcommands({})) {
            const auto& names = group.commands;
            if (std::find(names.begin(), names.end(), command->get_name()) != names.end()) {
                command->group(group.title);
            }
        }
    }
}

std::string WhyUnknownCommand(const CLI::App& app, const std::vector<std::string>& arguments) {
    if (arguments.empty() || arguments.front().empty() || arguments.front().front() == '-') {
        return "";
    }
    const std::string& name = arguments.front();
    const auto commands = app.get_subcommands({});
    if (std::any_of(commands.begin(), commands.end(),
                    [&name](const CLI::App* command) { return command->check_name(name); })) {
        return "";
    }
    const std::string nearest = NearestCommand(app, name);
    return name + ": there is no such command" +
           (nearest.empty() ? "" : "; did you mean \"" + nearest + "\"?");
}

}  // namespace kvhost
