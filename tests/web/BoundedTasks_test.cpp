#include "BoundedTasks.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>

#include "Eventually.h"

namespace kvhosttest {
namespace {

using kvhost::BoundedTasks;

TEST(BoundedTasksTest, EverythingThatWasAddedIsDoneBeforeTheEnd) {
    std::atomic<int> done{0};
    BoundedTasks tasks(3, 2);
    for (int i = 0; i < 100; ++i) {
        tasks.enqueue([&done] { ++done; });
    }
    tasks.shutdown();
    EXPECT_EQ(done, 100);
}

TEST(BoundedTasksTest, WhoAddsToAFullQueueWaits) {
    std::promise<void> gate;
    const std::shared_future<void> opened = gate.get_future().share();
    std::atomic<int> added{0};
    BoundedTasks tasks(1, 2);
    std::thread adder([&] {
        for (int i = 0; i < 5; ++i) {
            tasks.enqueue([opened] { opened.wait(); });
            ++added;
        }
    });
    EXPECT_TRUE(kvtest::Eventually([&] { return added == 3; }));  // one is being done, two wait
    // Nothing tells that the fourth does not come; half of a tenth of a second would do for it.
    EXPECT_FALSE(kvtest::Eventually([&] { return added > 3; }, std::chrono::milliseconds(50)));
    gate.set_value();
    adder.join();
    EXPECT_EQ(added, 5);
    tasks.shutdown();
}

}  // namespace
}  // namespace kvhosttest
