#include "ShowCommand.h"

#include "CommandOutput.h"
#include "HistoryText.h"
#include "JobViews.h"
#include "StoreJson.h"

namespace kvhost {

CLI::App* ShowCommand::Register(CLI::App& app) {
    CLI::App* show = app.add_subcommand("show", "Show the whole history of a job");
    show->add_option("job", m_strName, "Name of a job, or of a submission for all of its jobs")->required();
    m_store.Register(*show);
    show->add_flag("--text", m_bText, "Show the text of the message too");
    return show;
}

int ShowCommand::Run() {
    StoreDatabase store = m_store.OpenStore();
    const std::vector<JobHistory> histories = JobViews(store).Show(m_strName);
    if (histories.empty()) {
        TellFault(m_strName + ": there is no such job; `kvhost list` names them");
        return kExitSomeFailed;
    }
    CommandOutput output;
    nlohmann::ordered_json document = {{"jobs", nlohmann::ordered_json::array()}};
    for (const JobHistory& history : histories) {
        if (m_store.IsJson()) {
            document["jobs"].push_back(JsonOf(history, m_bText));
            continue;
        }
        output.Write(&history == &histories.front() ? "" : "\n");
        output.Write(HistoryText(history, StoreNow(), m_bText));
    }
    output.Write(m_store.IsJson() ? DumpJson(document) : "");
    return output.Conclude(kExitSuccess);
}

}  // namespace kvhost
