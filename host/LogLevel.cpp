#include "LogLevel.h"

#include <array>
#include <utility>

namespace kvhost {

std::optional<spdlog::level::level_enum> ParseLogLevel(std::string_view name) {
    using spdlog::level::level_enum;
    static constexpr std::array<std::pair<std::string_view, level_enum>, 6> kLevels{
        {{"trace", level_enum::trace},
         {"debug", level_enum::debug},
         {"info", level_enum::info},
         {"warning", level_enum::warn},
         {"error", level_enum::err},
         {"off", level_enum::off}}};
    for (const auto& [known, level] : kLevels) {
        if (known == name) {
            return level;
        }
    }
    return std::nullopt;
}

}  // namespace kvhost
