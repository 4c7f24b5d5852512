#include "SubmitCommand.h"

#include <filesystem>
#include <iostream>
#include <optional>

#include "BulkSubmission.h"
#include "LineReader.h"
#include "MailReader.h"
#include "Problem.h"

namespace kvhost {

namespace {

void RefuseTogether(bool one, bool other, const std::string& text) {
    if (one && other) {
        throw BadInput("submit: " + text);
    }
}

/// Options name files from the current folder, and anywhere.
std::string AbsolutePath(const std::string& path) {
    return std::filesystem::absolute(path).lexically_normal().string();
}

void ReadTime(const char* field, const std::string& text, StoreTime now, std::optional<StoreTime>& time,
              SubmissionDraft& draft) {
    const std::string wrong = ReadMoment(text, now, time);
    if (!wrong.empty()) {
        draft.faults.push_back({field, wrong});
    }
}

}  // namespace

CLI::App* SubmitCommand::Register(CLI::App& app) {
    m_command = app.add_subcommand("submit", "Put jobs into the store; a running host delivers them");
    m_store.Register(*m_command);
    RegisterFields(*m_command);
    RegisterInputs(*m_command);
    return m_command;
}

void SubmitCommand::RegisterFields(CLI::App& command) {
    command.add_option("--carrier", m_options.carrier, "Carrier of the configuration");
    command.add_option("--to", m_options.recipients, "Recipient; may be repeated")->allow_extra_args(false);
    command.add_option("recipients", m_options.moreRecipients, "Recipients, as with --to");
    command.add_option("--subject", m_options.subject, "Subject, one line of UTF-8");
    command.add_option("--text", m_options.text, "Text of the message, UTF-8");
    command.add_option("--text-file", m_options.textFile, "File with the text; - for standard input");
    command.add_option("--attach", m_options.attachments, "File to attach; may be repeated")
        ->allow_extra_args(false);
    command.add_option("--id", m_options.id,
                       "Identifier: what is submitted again under it is stored once; default: a random one");
    command.add_flag("--urgent", m_options.isUrgent, "Goes before what is not urgent");
    command.add_option("--not-before", m_options.notBefore,
                       "Not handed over before: a time such as 2026-03-01T09:30:00Z, or a duration from now "
                       "such as 2h");
    command.add_option("--deadline", m_options.deadline, "Not tried from then on; a time or a duration");
}

void SubmitCommand::RegisterInputs(CLI::App& command) {
    command
        .add_option("--jsonl", m_options.jsonLines,
                    "Submissions from a file, one JSON object per line; - for standard input")
        ->expected(0, 1);
    command.add_flag("--strict", m_options.isStrict, "With --jsonl: store nothing when a line is refused");
    command
        .add_option("--eml", m_options.message,
                    "A whole message (RFC 5322) from a file; - for standard input. Without --to, its To, Cc "
                    "and Bcc are the recipients")
        ->expected(0, 1);
}

int SubmitCommand::Run() {
    CheckUsage();
    const HostConfig config = m_store.LoadConfig(SecretsUse::Skip);
    StoreDatabase database(m_store.StoreFolder(), StoreDatabase::Access::Create);
    SubmissionTaker taker(database, config, BaseFolder());
    SubmissionReport report(std::cout, m_store.IsJson());
    if (Has("--jsonl")) {
        SubmitLines(config, taker, report);
    } else {
        SubmitOne(config, taker, report);
    }
    report.Flush();
    if (!std::cout) {
        throw BadInput("standard output: the answers could not be written; what was submitted is stored");
    }
    return report.ExitStatus();
}

void SubmitCommand::CheckUsage() const {
    for (const char* option : {"--carrier", "--to", "recipients", "--subject", "--text", "--text-file",
                               "--attach", "--id", "--urgent", "--not-before", "--deadline", "--eml"}) {
        RefuseTogether(Has("--jsonl"), Has(option),
                       std::string(option) + " does not go with --jsonl, whose lines say it themselves");
    }
    for (const char* option : {"--subject", "--text", "--text-file", "--attach"}) {
        RefuseTogether(Has("--eml"), Has(option),
                       std::string(option) + " does not go with --eml, whose message says it itself");
    }
    RefuseTogether(Has("--strict"), !Has("--jsonl"), "--strict goes with --jsonl only");
    RefuseTogether(!Has("--jsonl"), !Has("--carrier"), "--carrier is missing; name one of the configuration");
    if (Has("--jsonl") || Has("--eml")) {
        return;
    }
    RefuseTogether(Recipients().empty(), true, "--to is missing; name a recipient");
    RefuseTogether(Has("--text"), Has("--text-file"), "expected either --text or --text-file, found both");
    RefuseTogether(!Has("--text"), !Has("--text-file"),
                   "expected --text or --text-file (- is standard input), both are missing");
}

bool SubmitCommand::Has(const std::string& option) const {
    return m_command->count(option) > 0;
}

std::vector<std::string> SubmitCommand::Recipients() const {
    std::vector<std::string> recipients = m_options.recipients;
    recipients.insert(recipients.end(), m_options.moreRecipients.begin(), m_options.moreRecipients.end());
    return recipients;
}

/// Paths in a file of submissions are seen from the file's folder.
std::string SubmitCommand::BaseFolder() const {
    const bool isFile = !m_options.jsonLines.empty() && m_options.jsonLines != "-";
    return isFile ? std::filesystem::path(AbsolutePath(m_options.jsonLines)).parent_path().string()
                  : std::filesystem::current_path().string();
}

void SubmitCommand::SubmitLines(const HostConfig& config, SubmissionTaker& taker,
                                SubmissionReport& report) const {
    LineReader lines(m_options.jsonLines.empty() ? "-" : m_options.jsonLines);
    const auto mode =
        m_options.isStrict ? BulkSubmission::Mode::AllOrNothing : BulkSubmission::Mode::EachAlone;
    try {
        BulkSubmission(taker, config, report).Run(lines, mode);
    } catch (...) {
        std::cerr << "kvhost: before the fault: " << report.Summary() << std::endl;
        throw;
    }
    std::cerr << "kvhost: " << report.Summary() << std::endl;
}

void SubmitCommand::SubmitOne(const HostConfig& config, SubmissionTaker& taker,
                              SubmissionReport& report) const {
    const std::vector<SubmissionReceipt> receipts = taker.Take({ReadDraft(config)}, StoreNow());
    report.Tell(receipts.front());
}

SubmissionDraft SubmitCommand::ReadDraft(const HostConfig& config) const {
    const StoreTime now = StoreNow();
    SubmissionDraft draft = Has("--eml") ? ReadMessage() : ReadOptions();
    Submission& submission = draft.submission;
    submission.id = Has("--id") ? m_options.id : NewSubmissionId();
    submission.carrier = m_options.carrier;
    submission.isUrgent = m_options.isUrgent;
    if (Has("--not-before")) {
        ReadTime("not_before", m_options.notBefore, now, submission.notBefore, draft);
    }
    if (Has("--deadline")) {
        ReadTime("deadline", m_options.deadline, now, submission.deadline, draft);
    }
    CheckSubmission(draft, config, now);
    return draft;
}

SubmissionDraft SubmitCommand::ReadMessage() const {
    LineReader message(m_options.message.empty() ? "-" : m_options.message);
    SubmissionDraft draft = ReadMail(message.Rest());
    if (const std::vector<std::string> recipients = Recipients(); !recipients.empty()) {
        draft.submission.recipients = recipients;
    }
    return draft;
}

SubmissionDraft SubmitCommand::ReadOptions() const {
    SubmissionDraft draft;
    draft.submission.recipients = Recipients();
    draft.submission.subject = m_options.subject;
    draft.submission.text = Has("--text-file") ? LineReader(m_options.textFile).Rest() : m_options.text;
    for (const std::string& path : m_options.attachments) {
        draft.attachments.push_back({"", AbsolutePath(path), ""});
    }
    return draft;
}

}  // namespace kvhost
