#include "Gate.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <thread>

using kvtest::Gate;

TEST(GateTest, AGateIsClosedUntilItIsOpened) {
    Gate gate;
    EXPECT_FALSE(gate.isOpen());
    gate.open();
    EXPECT_TRUE(gate.isOpen());
}

TEST(GateTest, AnOpenGateStaysOpen) {
    Gate gate;
    gate.open();
    gate.open();
    EXPECT_TRUE(gate.isOpen());
    EXPECT_TRUE(gate.isOpen());
}

TEST(GateTest, ACopyIsTheSameGate) {
    Gate gate;
    const Gate copy = gate;
    gate.open();
    EXPECT_TRUE(copy.isOpen());
}

TEST(GateTest, OpeningWakesWhoWaitsForTheDescriptor) {
    Gate gate;
    int woken = 0;
    std::thread waiter([&] {
        pollfd watched{gate.descriptor(), POLLIN, 0};
        woken = poll(&watched, 1, 10000);
    });
    gate.open();
    waiter.join();
    EXPECT_EQ(woken, 1);
}
