#include "CommandLine.h"

#include <SQLiteCpp/Exception.h>
#include <sqlite3.h>

#include <iostream>
#include <memory>
#include <sstream>
#include <utility>
#include <vector>

#include "CarrierTestCommand.h"
#include "Command.h"
#include "CommandHelp.h"
#include "ConfigCheckCommand.h"
#include "FsckCommand.h"
#include "ListCommand.h"
#include "OperationCommand.h"
#include "Problem.h"
#include "PurgeCommand.h"
#include "RunCommand.h"
#include "SendCommand.h"
#include "ShowCommand.h"
#include "StatsCommand.h"
#include "StoreError.h"
#include "SubmitCommand.h"
#include "TopCommand.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

using Commands = std::vector<std::pair<CLI::App*, std::unique_ptr<Command>>>;

void AddCommand(CLI::App& app, std::unique_ptr<Command> command, Commands& commands) {
    CLI::App* registered = command->Register(app);
    commands.emplace_back(registered, std::move(command));
}

int RunParsed(const Commands& commands) {
    for (const auto& [app, command] : commands) {
        if (app->parsed()) {
            return command->Run();
        }
    }
    return kExitBadInput;
}

/// What SQLite says, which names neither the store nor what to do.
std::string StoreTrouble(const SQLite::Exception& error) {
    const std::string text = std::string("the job store: ") + error.what();
    switch (error.getErrorCode()) {
        case SQLITE_FULL:
            return text + "; make room on its disk, `kvhost config check` names its folder";
        case SQLITE_BUSY:
            return text + "; another process keeps it for long, try again";
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
            return text + "; stop the host, keep a copy of the folder, and restore a backup";
        default:
            return text;
    }
}

void TellFaults(const std::string& text) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::cerr << "kvhost: " << MakeVisible(line) << "\n";
    }
}

/// Help and version are asked for as if they were faults; they are none.
int Explain(const CLI::App& app, const CLI::ParseError& error, const std::vector<std::string>& arguments) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        return app.exit(error);
    }
    const std::string unknown = WhyUnknownCommand(app, arguments);
    TellFaults(unknown.empty() ? error.what() : unknown);
    std::cerr << "kvhost: run with --help for more\n";
    return kExitBadInput;
}

void AddCommands(CLI::App& app, Commands& commands) {
    AddCommand(app, std::make_unique<RunCommand>(), commands);
    AddCommand(app, std::make_unique<SubmitCommand>(), commands);
    AddCommand(app, std::make_unique<SendCommand>(), commands);
    AddCommand(app, std::make_unique<ListCommand>(), commands);
    AddCommand(app, std::make_unique<ShowCommand>(), commands);
    AddCommand(app, std::make_unique<StatsCommand>(), commands);
    AddCommand(app, std::make_unique<TopCommand>(), commands);
    for (const JobOperation operation :
         {JobOperation::Retry, JobOperation::Hold, JobOperation::Release, JobOperation::Cancel}) {
        AddCommand(app, std::make_unique<OperationCommand>(operation), commands);
    }
    AddCommand(app, std::make_unique<PurgeCommand>(), commands);
    AddCommand(app, std::make_unique<ConfigCheckCommand>(), commands);
    AddCommand(app, std::make_unique<CarrierTestCommand>(), commands);
    AddCommand(app, std::make_unique<FsckCommand>(), commands);
    ArrangeHelp(app);
}

}  // namespace

int RunCommandLine(int argc, const char* const* argv) {
    CLI::App app("Reference host for message delivery drivers", "kvhost");
    app.set_version_flag("--version", "kvhost " KVHOST_VERSION);
    app.require_subcommand(1);
    Commands commands;
    AddCommands(app, commands);
    try {
        app.parse(argc, argv);
        return RunParsed(commands);
    } catch (const CLI::ParseError& error) {
        return Explain(app, error, std::vector<std::string>(argv + 1, argv + argc));
    } catch (const StoreError& error) {
        TellFaults(error.what());
        return kExitNoStore;
    } catch (const SQLite::Exception& error) {
        TellFaults(StoreTrouble(error));
        return kExitNoStore;
    } catch (const std::exception& error) {
        TellFaults(error.what());
        return kExitBadInput;
    }
}

}  // namespace kvhost
