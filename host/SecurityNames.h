#pragma once

#include <optional>
#include <string_view>

#include "KvMessageFile.h"

namespace kvhost {

/// What the configuration calls a carrier's security: "on-demand", "clear", "if-available" or "required".
const char* SecurityName(SmtpSecurityType security);

/// The security that is called so; nothing for any other text.
std::optional<SmtpSecurityType> SecurityNamed(std::string_view name);

}  // namespace kvhost
