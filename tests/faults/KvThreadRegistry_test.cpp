#include "KvThreadRegistry.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "faults/SystemCalls.h"
#include "src/ThreadDoubles.h"

namespace {

using kvtest::FailOnce;
using kvtest::Interception;
using kvtest::Latch;
using kvtest::SystemCall;
using kvtest::SystemCallArguments;

TEST(KvThreadRegistryFaultTest, StartAnswersTheErrorOfTheSystemAndRegistersNothing) {
    pthread_t id = pthread_self();
    FailOnce failure(SystemCall::ThreadCreate, EAGAIN);
    const auto routine = [](void*) -> void* { return nullptr; };
    EXPECT_EQ(KvThreadRegistry::Start(&id, nullptr, routine, nullptr), EAGAIN);
    EXPECT_EQ(id, pthread_self());
}

/// Writes down under `name` each call that this thread makes.
Interception::Handler NoteOwnCalls(std::vector<std::string>& calls, const char* name) {
    const pthread_t caller = pthread_self();
    return [&calls, name, caller](const SystemCallArguments&) -> std::optional<int> {
        if (pthread_equal(pthread_self(), caller) != 0) {
            calls.emplace_back(name);
        }
        return std::nullopt;
    };
}

// A thread that ends waits for the mutex, so that the id cannot pass to a stranger before the signal is out.
TEST(KvThreadRegistryFaultTest, RegistryIsHeldWhileASignalIsSent) {
    Latch goOn;
    const auto waitForIt = [](void* latch) -> void* {
        static_cast<Latch*>(latch)->Wait();
        return nullptr;
    };
    pthread_t id{};
    ASSERT_EQ(KvThreadRegistry::Start(&id, nullptr, waitForIt, &goOn), 0);
    std::vector<std::string> calls;
    {
        const Interception locks(SystemCall::MutexLock, NoteOwnCalls(calls, "lock"));
        const Interception kills(SystemCall::ThreadKill, NoteOwnCalls(calls, "kill"));
        const Interception unlocks(SystemCall::MutexUnlock, NoteOwnCalls(calls, "unlock"));
        KvThreadRegistry::Signal(id, 0);
    }
    EXPECT_EQ(calls, (std::vector<std::string>{"lock", "kill", "unlock"}));
    goOn.Open();
    pthread_join(id, nullptr);
}

}  // namespace
