#include "KvLibrary.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <cerrno>

#include "KvconException.h"
#include "KvsystemResource.h"
#include "TempDir.h"
#include "faults/SystemCalls.h"
#include "src/ProcessDoubles.h"

namespace {

using kvtest::FailOnce;
using kvtest::SystemCall;
using kvtest::TextOfChild;

bool IsHandled(int signal) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    return action.sa_handler != SIG_DFL;
}

/// A directory with a resource file; the library is started in children.
class KvLibraryFaultTest : public ::testing::Test {
protected:
    KvLibraryFaultTest() { dir.write("libresource.res", " MSG000001=text"); }

    kvtest::TempDir dir;
};

TEST_F(KvLibraryFaultTest, AStartThatCannotTryTheTextsAnswersFalseAtOnce) {
    EXPECT_EQ(TextOfChild([&] {
                  signal(SIGQUIT, SIG_DFL);  // whoever started the program may have it ignored
                  const FailOnce failure(SystemCall::Once, EINVAL, &the_Once);
                  const bool started = InitialLib(dir.path());
                  return std::string(started ? "started " : "not started ") +
                         (the_ResourceDir == dir.path() ? "stored " : "not stored ") +
                         the_LibResource.GetString(" MSG000001") +
                         (IsHandled(SIGQUIT) ? " handled" : " not handled");
              }),
              "not started stored Unknown not handled");
}

TEST_F(KvLibraryFaultTest, TheNextStartTriesTheTextsAgain) {
    EXPECT_EQ(TextOfChild([&] {
                  const FailOnce failure(SystemCall::Once, EINVAL, &the_Once);
                  InitialLib(dir.path());
                  InitialLib(dir.path());
                  return the_LibResource.GetString(" MSG000001");
              }),
              "text");
}

TEST_F(KvLibraryFaultTest, AHandlerThatCannotBeInstalledEndsTheStartWithItsException) {
    EXPECT_EQ(TextOfChild([&]() -> std::string {
                  const FailOnce failure(SystemCall::SignalAction, EINVAL);
                  try {
                      InitialLib(dir.path());
                  } catch (const KvconException&) {
                      return "thrown after " + the_LibResource.GetString(" MSG000001");
                  }
                  return "nothing was thrown";
              }),
              "thrown after text");
}

}  // namespace
