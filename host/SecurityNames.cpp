#include "SecurityNames.h"

#include <array>

namespace kvhost {

namespace {

struct NamedSecurity {
    const char* name;
    SmtpSecurityType security;
};

constexpr std::array<NamedSecurity, 4> kNames{{{"on-demand", SMTP_SECURITY_ON_DEMAND},
                                               {"clear", SMTP_SECURITY_CLEAR},
                                               {"if-available", SMTP_SECURITY_IF_AVAILABLE},
                                               {"required", SMTP_SECURITY_REQUIRED}}};

}  // namespace

const char* SecurityName(SmtpSecurityType security) {
    for (const NamedSecurity& entry : kNames) {
        if (entry.security == security) {
            return entry.name;
        }
    }
    return "unknown";
}

std::optional<SmtpSecurityType> SecurityNamed(std::string_view name) {
    for (const NamedSecurity& entry : kNames) {
        if (entry.name == name) {
            return entry.security;
        }
    }
    return std::nullopt;
}

}  // namespace kvhost
