#include "FsckCommand.h"

#include "CommandOutput.h"
#include "PeopleText.h"
#include "StoreCheck.h"
#include "StoreJson.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

std::string Text(const StoreCheckResult& result) {
    std::string text;
    for (const std::string& fault : result.faults) {
        text += MakeVisible(fault) + "\n";
    }
    const std::string faults = Counted(static_cast<std::int64_t>(result.faults.size()), "fault");
    return text + (result.IsSound() ? "sound: " : "NOT SOUND, " + faults + ": ") +
           Counted(result.jobs, "job") + ", " + Counted(result.attempts, "attempt") + ", " +
           Counted(result.attachments, "attachment") + "\n";
}

}  // namespace

CLI::App* FsckCommand::Register(CLI::App& app) {
    CLI::App* fsck = app.add_subcommand("fsck", "Prove that the job store is consistent");
    m_store.Register(*fsck);
    return fsck;
}

int FsckCommand::Run() {
    StoreDatabase store = m_store.OpenStore();
    const StoreCheckResult result = CheckStore(store);
    CommandOutput output;
    output.Write(m_store.IsJson() ? DumpJson({{"sound", result.IsSound()},
                                              {"jobs", result.jobs},
                                              {"attempts", result.attempts},
                                              {"attachments", result.attachments},
                                              {"faults", result.faults}})
                                  : Text(result));
    return output.Conclude(result.IsSound() ? kExitSuccess : kExitSomeFailed);
}

}  // namespace kvhost
