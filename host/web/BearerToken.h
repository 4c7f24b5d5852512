#pragma once

#include <string>
#include <string_view>

namespace kvhost {

/// True when an Authorization header's value is "Bearer TOKEN" (RFC 6750 2.1). How long that takes depends on the
/// lengths alone, and not on how much of the token agrees. An empty token is nobody's.
bool ShowsToken(const std::string& authorization, std::string_view token);

}  // namespace kvhost
