#include "ReturnQueue.h"

#include <gmock/gmock.h>

#include <thread>

#include "KvconCriticalSection.h"
#include "TestMessageFile.h"

using kvtest::ReturnQueue;
using kvtest::TestMessageFile;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

namespace {

/// What a driver does to hand a file back.
void PushBack(KvMessageFileQueue& queue, KvMessageFile& file) {
    const KvconCriticalSection section(&queue.m_lock, true, true, false);
    queue.m_dqMsgFiles.push_back(&file);
}

}  // namespace

TEST(ReturnQueueTest, DrainAnswersWhatCameSinceTheLastTime) {
    ReturnQueue queue;
    TestMessageFile one;
    TestMessageFile two;
    TestMessageFile three;
    PushBack(queue, one);
    PushBack(queue, two);
    EXPECT_THAT(queue.drain(), ElementsAre(&one, &two));
    PushBack(queue, three);
    EXPECT_THAT(queue.drain(), ElementsAre(&three));
    EXPECT_THAT(queue.drain(), IsEmpty());
    EXPECT_EQ(queue.count(), 3);
}

TEST(ReturnQueueTest, EachReturnOfAFileIsCounted) {
    ReturnQueue queue;
    TestMessageFile one;
    TestMessageFile two;
    const TestMessageFile never;
    PushBack(queue, one);
    PushBack(queue, two);
    EXPECT_TRUE(queue.eachReturnedOnce());
    queue.drain();
    PushBack(queue, two);
    EXPECT_EQ(queue.timesReturned(&one), 1);
    EXPECT_EQ(queue.timesReturned(&two), 2);
    EXPECT_EQ(queue.timesReturned(&never), 0);
    EXPECT_FALSE(queue.eachReturnedOnce());
}

TEST(ReturnQueueTest, AWaitSeesFilesOfAnotherThread) {
    ReturnQueue queue;
    TestMessageFile one;
    TestMessageFile two;
    EXPECT_FALSE(queue.waitFor(1, 5ms));
    PushBack(queue, one);
    queue.drain();
    std::thread other([&] { PushBack(queue, two); });
    EXPECT_TRUE(queue.waitFor(2));
    other.join();
}
