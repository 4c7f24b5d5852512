#include "RunFields.h"

#include <fstream>
#include <iterator>
#include <limits>

#include "InputChecks.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

constexpr Milliseconds kDay{86400000};
constexpr std::int64_t kMostBytes = std::int64_t{1} << 40;
constexpr int kMostFiles = 1000;
constexpr std::size_t kLeastToken = 16;

void ReadDuration(ConfigTable& fields, std::string_view key, Milliseconds least, Milliseconds most,
                  Milliseconds& value) {
    value = fields.Duration(key, least, most).value_or(value);
}

void ReadCount(ConfigTable& fields, std::string_view key, int least, int most, int& value) {
    value = static_cast<int>(fields.Integer(key, least, most).value_or(value));
}

void ReadBytes(ConfigTable& fields, std::string_view key, std::int64_t least, std::uint64_t& value) {
    value = static_cast<std::uint64_t>(
        fields.Integer(key, least, kMostBytes).value_or(static_cast<std::int64_t>(value)));
}

/// The token of a file of one line; empty when it cannot be used.
std::string ReadToken(ConfigTable& fields, const std::string& path) {
    if (const auto wrong = WhyNotAReadableFile(path)) {
        fields.Refuse("token_file", *wrong);
        return {};
    }
    std::ifstream stream(path, std::ios::binary);
    const std::string token =
        StripLineEnd(std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()));
    if (token.size() < kLeastToken || token.find_first_of(" \t\r\n") != std::string::npos) {
        fields.Refuse("token_file",
                      "expected a file with one line of at least 16 characters, without blanks");
    }
    return token;
}

}  // namespace

void ReadRunFields(ConfigTable& fields, RunSettings& settings) {
    ReadDuration(fields, "tick", Milliseconds(1), Milliseconds(60000), settings.tick);
    ReadCount(fields, "max_under_way", 1, 1000000, settings.maxUnderWay);
    ReadCount(fields, "slice", 1, 10000, settings.slice);
    ReadDuration(fields, "stop_limit", Milliseconds(0), kDay, settings.stopLimit);
    ReadDuration(fields, "cleanup_limit", Milliseconds(1000), kDay, settings.cleanUpLimit);
    ReadDuration(fields, "probe_limit", Milliseconds(100), Milliseconds(60000), settings.probeLimit);
    ReadDuration(fields, "keep", Milliseconds(0), 3650 * kDay, settings.keep);
    fields.RefuseOthers("tick, max_under_way, slice, stop_limit, cleanup_limit, probe_limit or keep");
}

void ReadLimitFields(ConfigTable& fields, SubmissionLimits& limits) {
    ReadBytes(fields, "attachment_bytes", 0, limits.attachmentBytes);
    ReadCount(fields, "attachments", 0, 1000, limits.attachments);
    ReadBytes(fields, "text_bytes", 1, limits.textBytes);
    ReadCount(fields, "recipients", 1, 10000, limits.recipients);
    fields.RefuseOthers("attachment_bytes, attachments, text_bytes or recipients");
}

void ReadDeliveryLogFields(ConfigTable& fields, const std::string& file, RotatedFile& log) {
    if (const auto path = fields.NeededText("file")) {
        log.path = ResolveBeside(file, *path);
    }
    ReadBytes(fields, "bytes", 1000, log.bytes);
    ReadCount(fields, "files", 1, kMostFiles, log.files);
    fields.RefuseOthers("file, bytes or files");
}

void ReadHttpFields(ConfigTable& fields, const std::string& file, SecretsUse secrets, HttpSettings& http) {
    http.isOn = true;
    http.address = fields.Text("address").value_or(http.address);
    ReadCount(fields, "port", 0, 65535, http.port);
    http.takesJobs = fields.Boolean("submit").value_or(http.takesJobs);
    const auto path = fields.Text("token_file");
    if (path && secrets == SecretsUse::Read) {
        http.token = ReadToken(fields, ResolveBeside(file, *path));
    }
    if (http.takesJobs && !fields.Has("token_file")) {
        fields.Refuse("token_file",
                      "expected the file of the token that submitters show; the field is missing");
    }
    ReadBytes(fields, "body_bytes", 1000, http.bodyBytes);
    fields.RefuseOthers("address, port, submit, token_file or body_bytes");
}

}  // namespace kvhost
