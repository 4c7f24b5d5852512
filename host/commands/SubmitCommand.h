#pragma once

#include <string>
#include <vector>

#include "Command.h"
#include "StoreOptions.h"
#include "SubmissionParser.h"
#include "SubmissionReport.h"
#include "SubmissionTaker.h"

namespace kvhost {

/// "kvhost submit": puts jobs into the store, from options, from JSON Lines or from a whole message, beside a running
/// host or without one. What it calls stored is on disk.
class SubmitCommand : public Command {
public:
    CLI::App* Register(CLI::App& app) override;
    /// Throws BadInput for bad usage and for a configuration or an input that cannot be read, StoreError and
    /// SQLite::Exception for a store that cannot be used.
    int Run() override;

private:
    struct Options {
        std::string id;
        std::string carrier;
        std::vector<std::string> recipients;
        std::vector<std::string> moreRecipients;
        std::string subject;
        std::string text;
        std::string textFile;
        std::vector<std::string> attachments;
        bool isUrgent = false;
        std::string notBefore;
        std::string deadline;
        std::string jsonLines;
        std::string message;
        bool isStrict = false;
    };

    void RegisterFields(CLI::App& command);
    void RegisterInputs(CLI::App& command);
    void CheckUsage() const;
    bool Has(const std::string& option) const;
    std::vector<std::string> Recipients() const;
    std::string BaseFolder() const;
    SubmissionDraft ReadDraft(const HostConfig& config) const;
    SubmissionDraft ReadMessage() const;
    SubmissionDraft ReadOptions() const;
    void SubmitOne(const HostConfig& config, SubmissionTaker& taker, SubmissionReport& report) const;
    void SubmitLines(const HostConfig& config, SubmissionTaker& taker, SubmissionReport& report) const;

    CLI::App* m_command = nullptr;
    StoreOptions m_store;
    Options m_options;
};

}  // namespace kvhost
