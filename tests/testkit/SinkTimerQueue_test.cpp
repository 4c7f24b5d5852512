#include <gtest/gtest.h>

#include "sink/TimerQueue.h"

using kvsink::TimePoint;
using kvsink::TimerQueue;
using std::chrono::seconds;

TEST(SinkTimerQueueTest, EmptyQueueNeverFallsDue) {
    TimerQueue queue;
    EXPECT_EQ(queue.next(), TimePoint::max());
    EXPECT_FALSE(queue.takeDue(TimePoint::max()));
}

TEST(SinkTimerQueueTest, EntriesComeInTheOrderOfTimeOnceDue) {
    const TimePoint start;
    TimerQueue queue;
    queue.add(start + seconds(3), 30);
    queue.add(start + seconds(1), 10);
    queue.add(start + seconds(2), 20);
    EXPECT_EQ(queue.next(), start + seconds(1));
    EXPECT_FALSE(queue.takeDue(start));
    EXPECT_EQ(queue.takeDue(start + seconds(2)), 10U);
    EXPECT_EQ(queue.takeDue(start + seconds(2)), 20U);
    EXPECT_FALSE(queue.takeDue(start + seconds(2)));
    EXPECT_EQ(queue.next(), start + seconds(3));
}
