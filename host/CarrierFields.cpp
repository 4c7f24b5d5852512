#include "CarrierFields.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <limits>
#include <utility>

#include "InputChecks.h"
#include "RetryFields.h"
#include "SecurityNames.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

constexpr const char* kFieldNames =
    "name, id, server, port, security, sender, user, password, password_file, password_env, ca_file, "
    "cert_file, key_file, on_doubt or retry";

using Check = std::optional<std::string> (*)(std::string_view);

/// Text that stands between braces in the driver's key of an account.
std::optional<std::string> WhyNotAKeyPart(std::string_view text) {
    if (text.find("}-{") != std::string_view::npos) {
        return "expected a text without \"}-{\", which parts the pieces of a connection's key; choose "
               "another one";
    }
    return WhyNotOneLine(text);
}

std::optional<std::string> WhyNotAUser(std::string_view text) {
    const auto wrong = WhyNotAName(text);
    return wrong ? wrong : WhyNotAKeyPart(text);
}

/// The text of a field that must pass `check`; empty when it is absent or refused.
std::string Checked(ConfigTable& fields, std::string_view key, std::optional<std::string> value,
                    Check check) {
    if (!value) {
        return {};
    }
    if (const auto wrong = check(*value)) {
        fields.Refuse(key, *wrong);
        return {};
    }
    return *value;
}

std::string ReadName(ConfigTable& fields, const std::string& givenName) {
    if (givenName.empty()) {
        return Checked(fields, "name", fields.NeededText("name"), WhyNotAName);
    }
    if (fields.Has("name")) {
        fields.Node("name");
        fields.Refuse("name", "expected no name here, the table's own is the carrier's");
    }
    return Checked(fields, "name", givenName, WhyNotAName);
}

std::optional<std::string> WhyNotAHostName(std::string_view text) {
    const auto allowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
               c == '-' || c == '_';
    };
    if (text.empty() || !std::all_of(text.begin(), text.end(), allowed)) {
        return "expected a host name or an IPv4 address; the port has a field of its own";
    }
    return std::nullopt;
}

std::string ReadServer(ConfigTable& fields) {
    const std::string host = Checked(fields, "server", fields.NeededText("server"), WhyNotAHostName);
    const auto port = fields.Integer("port", 1, 65535);
    return port ? host + ":" + std::to_string(*port) : host;
}

SmtpSecurityType ReadSecurity(ConfigTable& fields) {
    const auto text = fields.NeededText("security");
    const auto security = text ? SecurityNamed(*text) : std::nullopt;
    if (text && !security) {
        fields.Refuse("security",
                      "expected \"on-demand\", \"clear\", \"if-available\" or \"required\", found \"" +
                          MakeVisible(*text) + "\"");
    }
    return security.value_or(SMTP_SECURITY_CLEAR);
}

std::optional<std::string> ReadPasswordFile(ConfigTable& fields, const std::string& path) {
    if (const auto wrong = WhyNotAReadableFile(path)) {
        fields.Refuse("password_file", *wrong);
        return std::nullopt;
    }
    std::ifstream stream(path, std::ios::binary);
    const std::string content((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    return StripLineEnd(content);
}

std::optional<std::string> ReadPasswordVariable(ConfigTable& fields, const std::string& name) {
    const char* value = std::getenv(name.c_str());
    if (value == nullptr) {
        fields.Refuse("password_env", "expected the name of an environment variable that is set");
        return std::nullopt;
    }
    return value;
}

/// The one field that says what the password is; empty when there is none.
std::string PasswordSource(ConfigTable& fields) {
    std::string source;
    for (const char* key : {"password", "password_file", "password_env"}) {
        if (fields.Has(key) && !source.empty()) {
            fields.Refuse(key, "expected one of password, password_file and password_env, found \"" + source +
                                   "\" as well");
        } else if (fields.Has(key)) {
            source = key;
        }
        fields.Node(key);
    }
    return source;
}

/// Nothing when it was refused.
std::optional<std::string> PasswordFrom(ConfigTable& fields, const std::string& file,
                                        const std::string& source, const std::string& value) {
    if (source == "password_file") {
        return ReadPasswordFile(fields, ResolveBeside(file, value));
    }
    return source == "password_env" ? ReadPasswordVariable(fields, value) : std::optional(value);
}

std::string ReadPassword(ConfigTable& fields, const std::string& file, const std::string& source) {
    const auto value = fields.Text(source);
    if (!value) {
        return {};
    }
    const std::optional<std::string> password = PasswordFrom(fields, file, source, *value);
    if (!password) {
        return {};
    }
    if (password->empty()) {
        fields.Refuse(source, "expected a password, found none");
    }
    return Checked(fields, source, *password, WhyNotAKeyPart);
}

/// The user and the password come together or not at all: the driver would silently not authenticate
/// otherwise.
void ReadAccount(ConfigTable& fields, const std::string& file, SecretsUse secrets, Carrier& carrier) {
    const std::string source = PasswordSource(fields);
    if (source.empty() && fields.Has("user")) {
        fields.Refuse("user", "expected password, password_file or password_env with it");
    }
    if (!source.empty() && !fields.Has("user")) {
        fields.Refuse(source, "expected a user with it");
    }
    carrier.user = Checked(fields, "user", fields.Text("user"), WhyNotAUser);
    if (!source.empty() && secrets == SecretsUse::Read) {
        carrier.password = ReadPassword(fields, file, source);
    }
}

std::string ReadFilePath(ConfigTable& fields, const std::string& file, std::string_view key,
                         SecretsUse secrets = SecretsUse::Read) {
    const auto text = fields.Text(key);
    if (!text) {
        return {};
    }
    const std::string path = ResolveBeside(file, *text);
    const auto wrong = secrets == SecretsUse::Read ? WhyNotAReadableFile(path) : std::nullopt;
    if (wrong) {
        fields.Refuse(key, *wrong);
    }
    return path;
}

void ReadTlsFiles(ConfigTable& fields, const std::string& file, SecretsUse secrets, Carrier& carrier) {
    carrier.caFile = ReadFilePath(fields, file, "ca_file");
    carrier.certFile = ReadFilePath(fields, file, "cert_file");
    carrier.keyFile = ReadFilePath(fields, file, "key_file", secrets);
    if (fields.Has("cert_file") != fields.Has("key_file")) {
        fields.Refuse(fields.Has("cert_file") ? "key_file" : "cert_file",
                      "expected cert_file and key_file together, the field is missing");
    }
    const bool wantsTls =
        carrier.security == SMTP_SECURITY_IF_AVAILABLE || carrier.security == SMTP_SECURITY_REQUIRED;
    if (wantsTls && !fields.Has("ca_file")) {
        fields.Refuse(
            "ca_file",
            "expected the file of the trusted certificates, which this security needs; the field is missing");
    }
}

DoubtPolicy ReadDoubtPolicy(ConfigTable& fields, DoubtPolicy standard) {
    static constexpr std::array<std::pair<std::string_view, DoubtPolicy>, 3> kNames{
        {{"retry", DoubtPolicy::Retry}, {"hold", DoubtPolicy::Hold}, {"fail", DoubtPolicy::Fail}}};
    const auto text = fields.Text("on_doubt");
    for (const auto& [name, value] : kNames) {
        if (text == name) {
            return value;
        }
    }
    if (text) {
        fields.Refuse("on_doubt", "expected \"retry\", \"hold\" or \"fail\"");
    }
    return standard;
}

}  // namespace

Carrier ReadCarrierFields(ConfigTable& fields, const std::string& file, const std::string& givenName,
                          const RetryPolicy& retry, SecretsUse secrets) {
    Carrier carrier;
    carrier.name = ReadName(fields, givenName);
    carrier.id = static_cast<unsigned long>(
        fields.Integer("id", 1, std::numeric_limits<std::uint32_t>::max()).value_or(0));
    carrier.server = ReadServer(fields);
    carrier.security = ReadSecurity(fields);
    carrier.sender = Checked(fields, "sender", fields.NeededText("sender"), WhyNotAnAddress);
    ReadAccount(fields, file, secrets, carrier);
    ReadTlsFiles(fields, file, secrets, carrier);
    carrier.onDoubt = ReadDoubtPolicy(fields, carrier.onDoubt);
    carrier.retry = retry;
    fields.ReadTable("retry", [&carrier](ConfigTable& table) { ReadRetryFields(table, carrier.retry); });
    fields.RefuseOthers(kFieldNames);
    return carrier;
}

}  // namespace kvhost
