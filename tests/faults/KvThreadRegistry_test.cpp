#include "KvThreadRegistry.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "faults/SystemCalls.h"

namespace {

using kvtest::FailOnce;
using kvtest::SystemCall;

TEST(KvThreadRegistryFaultTest, StartAnswersTheErrorOfTheSystemAndRegistersNothing) {
    pthread_t id = pthread_self();
    FailOnce failure(SystemCall::ThreadCreate, EAGAIN);
    const auto routine = [](void*) -> void* { return nullptr; };
    EXPECT_EQ(KvThreadRegistry::Start(&id, nullptr, routine, nullptr), EAGAIN);
    EXPECT_EQ(id, pthread_self());
}

}  // namespace
