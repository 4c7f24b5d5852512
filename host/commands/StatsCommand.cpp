#include "StatsCommand.h"

#include "CommandOutput.h"
#include "PeopleText.h"
#include "StoreFigures.h"
#include "StoreJson.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

std::string Text(const StoreFigures& figures, const StoreSize& size) {
    return "Store   " + MakeVisible(figures.folder.string()) + ": " + SizeText(size.database) + " of jobs, " +
           SizeText(size.attachments) + " of attachments\n" + "Host    " +
           (figures.isHostRunning ? "running" : "not running") + "\n" + "Oldest  " +
           OldestQueuedText(figures) + "\n\n" + CountTable(figures).Text();
}

nlohmann::ordered_json Json(const StoreFigures& figures, const StoreSize& size) {
    nlohmann::ordered_json document = JsonOf(figures);
    document["database_bytes"] = size.database;
    document["attachment_bytes"] = size.attachments;
    return document;
}

}  // namespace

CLI::App* StatsCommand::Register(CLI::App& app) {
    CLI::App* stats = app.add_subcommand("stats", "Count the jobs by carrier and state");
    m_store.Register(*stats);
    return stats;
}

int StatsCommand::Run() {
    StoreDatabase store = m_store.OpenStore();
    const StoreFigures figures = ReadFigures(store, StoreNow());
    const StoreSize size = MeasureStore(store.Folder());
    CommandOutput output;
    output.Write(m_store.IsJson() ? DumpJson(Json(figures, size)) : Text(figures, size));
    return output.Conclude(kExitSuccess);
}

}  // namespace kvhost
