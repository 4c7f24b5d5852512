#include "MailReader.h"

#include <algorithm>
#include <array>
#include <set>
#include <string_view>
#include <utility>

#include "MailAddresses.h"
#include "MailCharset.h"
#include "MailHeader.h"
#include "TransferDecoding.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

constexpr int kMostDepth = 20;
constexpr const char* kEncodingField = "content-transfer-encoding";

std::string Decoded(std::string_view body, const MailHeader& header) {
    const std::string mechanism =
        ReadMailValue(kEncodingField, header.Only(kEncodingField).value_or("7bit")).value;
    if (mechanism == "7bit" || mechanism == "8bit" || mechanism == "binary") {
        return std::string(body);
    }
    if (mechanism != "base64" && mechanism != "quoted-printable") {
        throw MailFault(kEncodingField, "expected 7bit, 8bit, binary, quoted-printable or base64, found \"" +
                                            MakeVisible(mechanism.substr(0, 60)) + "\"");
    }
    auto content = mechanism == "base64" ? DecodeBase64(body) : DecodeQuotedPrintable(body);
    if (!content) {
        throw MailFault(kEncodingField, "expected a part in " + mechanism + ", found malformed " + mechanism);
    }
    return std::move(*content);
}

std::string DefaultName(const std::string& type, std::size_t number) {
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 7> kNames{
        {{"text/plain", ".txt"},
         {"text/calendar", ".ics"},
         {"image/png", ".png"},
         {"image/jpeg", ".jpg"},
         {"image/gif", ".gif"},
         {"application/pdf", ".pdf"},
         {"application/json", ".json"}}};
    if (type == "text/html") {
        return "message.html";
    }
    if (type == "message/rfc822") {
        return "message.eml";
    }
    const auto* const found = std::find_if(kNames.begin(), kNames.end(),
                                           [&type](const auto& entry) { return entry.first == type; });
    return "part-" + std::to_string(number) + (found == kNames.end() ? ".bin" : std::string(found->second));
}

/// What a name of ours may have as it is: the rest would reach some mail programs as something else.
bool IsPlain(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0x20 && byte < 0x7F && c != '"';
}

/// The last part of a path, with "_" for each character that no name of ours may have, and for the "=" of "=?".
std::string SafeName(const std::string& name) {
    std::string safe;
    for (const char c : name.substr(name.find_last_of("/\\") + 1)) {
        const bool isContinuation = (static_cast<unsigned char>(c) & 0xC0U) == 0x80;
        if (c == '?' && !safe.empty() && safe.back() == '=') {
            safe.back() = '_';
        }
        if (!isContinuation) {
            safe += IsPlain(c) ? c : '_';
        }
    }
    safe.erase(0, safe.find_first_not_of(' '));
    safe.erase(safe.find_last_not_of(' ') + 1);
    return safe == "." || safe == ".." ? "" : safe;
}

std::string Parameter(const MailValue& value, const std::string& name) {
    const auto found = value.parameters.find(name);
    return found == value.parameters.end() ? "" : found->second;
}

/// Cuts a multipart body at its boundaries (RFC 2046 5.1.1); the line end before one belongs to it.
std::vector<std::string_view> SplitParts(std::string_view body, const std::string& boundary) {
    const std::string delimiter = "--" + boundary;
    std::vector<std::string_view> parts;
    std::size_t begin = std::string_view::npos;
    for (std::size_t at = 0; at < body.size();) {
        const std::size_t next = std::min(body.find('\n', at), body.size() - 1) + 1;
        std::string_view line = body.substr(at, next - at);
        line = line.substr(0, line.find_last_not_of(" \t\r\n") + 1);
        const bool isLast = line == delimiter + "--";
        if (isLast || line == delimiter) {
            if (begin != std::string_view::npos) {
                std::string_view part = body.substr(begin, std::max(at, begin) - begin);
                part.remove_suffix(part.empty() ? 0 : 1);
                part.remove_suffix(!part.empty() && part.back() == '\r' ? 1 : 0);
                parts.push_back(part);
            }
            if (isLast) {
                return parts;
            }
            begin = next;
        }
        at = next;
    }
    throw MailFault("content-type",
                    "expected the line \"--" + MakeVisible(boundary.substr(0, 70)) +
                        "--\" at the end of a multipart, found none; the message may have been cut off");
}

/// Goes through the parts of a message.
class PartReader {
public:
    explicit PartReader(SubmissionDraft& draft) : m_draft(draft) {}

    void Read(const MailEntity& entity, int depth) {
        const MailValue type =
            ReadMailValue("content-type", entity.header.Only("content-type").value_or("text/plain"));
        if (type.value.substr(0, 10) == "multipart/") {
            ReadMultipart(entity, type, depth);
        } else {
            ReadLeaf(entity, type);
        }
    }

    void Finish() {
        if (!m_bHasText && !m_strHtmlName.empty()) {
            m_draft.submission.text = "The message is in the attachment " + m_strHtmlName + ".\n";
        }
    }

private:
    void ReadMultipart(const MailEntity& entity, const MailValue& type, int depth) {
        const std::string boundary = Parameter(type, "boundary");
        if (boundary.empty()) {
            throw MailFault("content-type", "expected the parameter \"boundary\" of a multipart, found none");
        }
        if (depth >= kMostDepth) {
            throw MailFault("content-type", "expected at most " + std::to_string(kMostDepth) +
                                                " multiparts in one another, found more");
        }
        for (const std::string_view part : SplitParts(entity.body, boundary)) {
            Read(ReadEntity(part), depth + 1);
        }
    }

    void ReadLeaf(const MailEntity& entity, const MailValue& type) {
        const MailValue disposition =
            ReadMailValue("content-disposition", entity.header.Only("content-disposition").value_or(""));
        std::string name = Parameter(disposition, "filename");
        name = SafeName(name.empty() ? Parameter(type, "name") : name);
        std::string content = Decoded(entity.body, entity.header);
        ++m_nParts;
        if (type.value == "text/plain" && !m_bHasText && name.empty() && disposition.value != "attachment") {
            TakeText(content, type);
            return;
        }
        name = name.empty() ? DefaultName(type.value, m_nParts) : name;
        if (type.value == "text/html" && m_strHtmlName.empty()) {
            m_strHtmlName = name;
        }
        m_draft.attachments.push_back({name, "", std::move(content)});
    }

    void TakeText(const std::string& content, const MailValue& type) {
        const std::string charset = Parameter(type, "charset");
        const auto text = ToUtf8(content, charset.empty() ? "us-ascii" : charset);
        if (!text) {
            throw MailFault("text", WhyNotUtf8(charset.empty() ? "us-ascii" : charset));
        }
        m_draft.submission.text = *text;
        m_bHasText = true;
    }

    SubmissionDraft& m_draft;
    std::size_t m_nParts = 0;
    bool m_bHasText = false;
    std::string m_strHtmlName;
};

void ReadRecipients(const MailHeader& header, std::vector<std::string>& recipients) {
    std::set<std::string> seen;
    for (const char* field : {"to", "cc", "bcc"}) {
        for (const std::string& value : header.All(field)) {
            for (const std::string& address : ReadAddresses(field, value)) {
                if (seen.insert(ComparableAddress(address)).second) {
                    recipients.push_back(address);
                }
            }
        }
    }
}

}  // namespace

SubmissionDraft ReadMail(const std::string& message) {
    SubmissionDraft draft;
    try {
        const MailEntity entity = ReadEntity(message);
        std::string subject = DecodeEncodedWords("subject", entity.header.Only("subject").value_or(""));
        std::replace(subject.begin(), subject.end(), '\t', ' ');
        draft.submission.subject = subject;
        ReadRecipients(entity.header, draft.submission.recipients);
        PartReader parts(draft);
        parts.Read(entity, 0);
        parts.Finish();
    } catch (const MailFault& fault) {
        draft.faults.push_back({fault.Field(), fault.what()});
    }
    return draft;
}

}  // namespace kvhost
