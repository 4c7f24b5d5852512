#include <gmock/gmock.h>

#include "CommandFixture.h"

namespace kvhosttest {
namespace {

using testing::HasSubstr;

class CommandLineTest : public CommandTest {
protected:
    int Kvhost(const std::vector<std::string>& arguments) {
        std::vector<std::string> command{KV_BINARY_DIR "/kvhost"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return RunProgram(command);
    }
};

TEST_F(CommandLineTest, AnUnknownCommandIsToldWithTheOneThatIsMeant) {
    EXPECT_EQ(Kvhost({"lits"}), 2);
    EXPECT_EQ(Error(),
              "kvhost: lits: there is no such command; did you mean \"list\"?\n"
              "kvhost: run with --help for more\n");
}

TEST_F(CommandLineTest, AnUnknownCommandThatIsLikeNoneIsTold) {
    EXPECT_EQ(Kvhost({"deliver-everything"}), 2);
    EXPECT_EQ(Error(),
              "kvhost: deliver-everything: there is no such command\n"
              "kvhost: run with --help for more\n");
}

TEST_F(CommandLineTest, AKnownCommandWithAWrongOptionIsNotCalledUnknown) {
    EXPECT_EQ(Kvhost({"list", "--colour"}), 2);
    EXPECT_THAT(Error(), HasSubstr("--colour"));
    EXPECT_EQ(Kvhost({}), 2);
    EXPECT_THAT(Error(), HasSubstr("A subcommand is required"));
}

TEST_F(CommandLineTest, HelpNamesTheCommandsInTheirGroups) {
    EXPECT_EQ(Kvhost({"--help"}), 0);
    const std::string& help = Output();
    std::size_t place = 0;
    for (const char* part : {"\nSending:\n", "  send ", "\nLooking:\n", "  list ", "  show ", "  stats ",
                             "  top ", "\nActing on jobs:\n", "  retry ", "  hold ", "  release ",
                             "  cancel ", "  purge ", "\nChecking:\n", "  config ", "  fsck "}) {
        const std::size_t found = help.find(part, place);
        ASSERT_NE(found, std::string::npos) << part << " in " << help;
        place = found;
    }
}

TEST_F(CommandLineTest, ADatabaseOfAnotherProgramIsNoStore) {
    const kvtest::TempDir folder;
    folder.write("jobs.db", std::string(200, 'x'));
    EXPECT_EQ(Kvhost({"list", "--store", folder.path()}), 3);
    EXPECT_THAT(Error(), HasSubstr("jobs.db: the store cannot be opened: "));
}

}  // namespace
}  // namespace kvhosttest
