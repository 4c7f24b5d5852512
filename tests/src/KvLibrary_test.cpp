#include "KvLibrary.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <stdexcept>

#include "KvconThread.h"
#include "KvsystemResource.h"
#include "TempDir.h"
#include "src/ProcessDoubles.h"

namespace {

using kvtest::TempDir;
using kvtest::TextOfChild;

std::string LoadedText() {
    return the_LibResource.GetString(" MSG000001");
}

bool IsHandled(int signal) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    return action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN;
}

/// Starts the library: what that answers and what is loaded then.
std::string TextAfterStart(const std::string& resourceDir) {
    const bool started = InitialLib(resourceDir);
    return (started ? "true " : "false ") + LoadedText();
}

std::string Word(bool value) {
    return value ? "true " : "false ";
}

/// Two directories with a resource file each. The library is started once per process: in children.
class KvLibraryTest : public ::testing::Test {
protected:
    KvLibraryTest() {
        first.write("libresource.res", " MSG000001=first");
        second.write("libresource.res", " MSG000001=second\n MSG000002=second");
    }

    TempDir first;
    TempDir second;
};

TEST_F(KvLibraryTest, ADirectoryWithoutASlashAtItsEndGetsOne) {
    EXPECT_EQ(TextOfChild([&] { return TextAfterStart(first.path()); }), "true first");
}

TEST_F(KvLibraryTest, ASlashAtTheEndOfTheDirectoryIsKept) {
    EXPECT_EQ(TextOfChild([&] { return TextAfterStart(first.path() + "/"); }), "true first");
}

TEST_F(KvLibraryTest, ABackslashAtTheEndOfTheDirectoryIsKept) {
    first.write("sub\\libresource.res", " MSG000001=behind a backslash");
    EXPECT_EQ(TextOfChild([&] { return TextAfterStart(first.file("sub\\")); }), "true behind a backslash");
}

TEST_F(KvLibraryTest, AnEmptyDirectoryIsTheWorkingDirectory) {
    EXPECT_EQ(TextOfChild([&] {
                  const bool changed = chdir(first.path().c_str()) == 0;
                  return Word(changed) + TextAfterStart("");
              }),
              "true true first");
}

TEST_F(KvLibraryTest, ASecondDirectoryIsStoredButNothingIsLoadedFromIt) {
    EXPECT_EQ(TextOfChild([&] {
                  InitialLib(first.path());
                  const bool again = InitialLib(second.path());
                  return Word(again) + LoadedText() + " " + the_LibResource.GetString(" MSG000002") + " " +
                         Word(the_ResourceDir == second.path());
              }),
              "true first Unknown true ");
}

TEST_F(KvLibraryTest, WithoutADirectoryNothingIsLoadedAndADirectoryMayStillFollow) {
    EXPECT_EQ(TextOfChild([&] {
                  const bool started = InitialLib();
                  const std::string before = LoadedText();
                  InitialLib(first.path());
                  return Word(started) + before + " " + LoadedText();
              }),
              "true Unknown first");
}

TEST_F(KvLibraryTest, AMissingFileIsNoFailure) {
    EXPECT_EQ(TextOfChild([&] { return TextAfterStart(first.file("missing")); }), "true Unknown");
}

TEST_F(KvLibraryTest, AFileThatAppearsLaterIsNotLoaded) {
    EXPECT_EQ(TextOfChild([&] {
                  InitialLib(first.file("missing"));
                  InitialLib(first.path());
                  return LoadedText();
              }),
              "Unknown");
}

TEST_F(KvLibraryTest, AShortEntryOfTheFileEndsTheStartWithItsException) {
    second.write("libresource.res", " MSG000001=second\n\n");
    EXPECT_EQ(TextOfChild([&]() -> std::string {
                  try {
                      InitialLib(second.path());
                  } catch (const std::out_of_range& error) {
                      return error.what() + std::string(" ") + Word(IsHandled(SIGUSR1));
                  }
                  return "nothing was thrown";
              }),
              "basic_string::substr false ");
}

TEST_F(KvLibraryTest, BothFormsInstallTheHandlersOfTheThreadLayerEachTime) {
    EXPECT_EQ(TextOfChild([&] {
                  std::string seen = Word(IsHandled(SIGQUIT));
                  InitialLib();
                  seen += Word(IsHandled(SIGQUIT)) + Word(IsHandled(SIGUSR1));
                  for (int start = 0; start < 2; ++start) {
                      signal(SIGQUIT, SIG_DFL);
                      InitialLib(first.path());
                      seen += Word(IsHandled(SIGQUIT));
                  }
                  return seen;
              }),
              "false true true true true ");
}

TEST_F(KvLibraryTest, ClosingKeepsTheTextsAndTheHandlers) {
    EXPECT_EQ(TextOfChild([&] {
                  InitialLib(first.path());
                  const bool closed = CloseLib();
                  return Word(closed) + LoadedText() + " " + Word(IsHandled(SIGQUIT));
              }),
              "true first true ");
}

TEST_F(KvLibraryTest, AClosedLibraryStartsAgain) {
    EXPECT_EQ(TextOfChild([&] {
                  InitialLib();
                  CloseLib();
                  const bool again = InitialLib();
                  return Word(again) + Word(CloseLib());
              }),
              "true true ");
}

TEST_F(KvLibraryTest, LoadingDirectlyAddsTheTextsOfTheCurrentDirectoryEachTime) {
    EXPECT_EQ(TextOfChild([&] {
                  the_ResourceDir = first.path();
                  RealInitial();
                  the_ResourceDir = second.path();
                  RealInitial();
                  return LoadedText() + the_LibResource.GetString(" MSG000002");
              }),
              "firstsecond");
}

}  // namespace
