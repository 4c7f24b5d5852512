#include "BulkSubmission.h"

#include <algorithm>
#include <utility>

#include "JsonObject.h"
#include "SubmissionParser.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

constexpr std::size_t kGroupSize = 500;
constexpr std::size_t kGroupBytes = std::size_t{16} << 20U;

bool IsBlank(const std::string& line) {
    return line.find_first_not_of(" \t\r") == std::string::npos;
}

SubmissionDraft Refused(const std::string& why) {
    SubmissionDraft draft;
    draft.faults.push_back({"", why});
    return draft;
}

SubmissionDraft ReadDraft(const std::string& text, const HostConfig& config) {
    if (!IsUtf8(text)) {
        return Refused("expected UTF-8, found other bytes; convert the file to UTF-8");
    }
    const ParsedObject parsed = ParseJsonObject(text);
    return parsed.wrong ? Refused(*parsed.wrong)
                        : ParseSubmission(parsed.object, config, SubmissionOrigin::Local, StoreNow());
}

}  // namespace

void BulkSubmission::Run(LineReader& lines, Mode mode) {
    while (const auto text = lines.Next()) {
        if (!IsBlank(*text)) {
            Add(*text, lines);
        }
        if (mode == Mode::EachAlone && (IsGroupFull() || !lines.IsReady())) {
            StoreGroup();
        }
    }
    if (mode == Mode::AllOrNothing) {
        StoreAllOrNothing();
    } else {
        StoreGroup();
    }
}

void BulkSubmission::Add(const std::string& text, const LineReader& lines) {
    m_vecDrafts.push_back(ReadDraft(text, m_config));
    m_vecPlaces.push_back({lines.Name(), lines.Line()});
    m_nBytes += text.size();
}

bool BulkSubmission::IsGroupFull() const {
    return m_vecDrafts.size() >= kGroupSize || m_nBytes >= kGroupBytes;
}

void BulkSubmission::StoreGroup() {
    const auto receipts = m_taker.Take(std::exchange(m_vecDrafts, {}), StoreNow());
    for (std::size_t i = 0; i < receipts.size(); ++i) {
        m_report.Tell(receipts[i], m_vecPlaces[i]);
    }
    m_report.Flush();
    m_vecPlaces.clear();
    m_nBytes = 0;
}

void BulkSubmission::StoreAllOrNothing() {
    for (SubmissionDraft& draft : m_vecDrafts) {
        m_taker.KeepAttachments(draft);
    }
    const bool isAnyRefused = std::any_of(m_vecDrafts.begin(), m_vecDrafts.end(),
                                          [](const SubmissionDraft& draft) { return draft.IsRefused(); });
    for (SubmissionDraft& draft : m_vecDrafts) {
        if (isAnyRefused && !draft.IsRefused()) {
            draft.faults.push_back({"", "not stored, because another line is refused (--strict)"});
        }
    }
    StoreGroup();
}

}  // namespace kvhost
