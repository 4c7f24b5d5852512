#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "driver/FrameworkDoubles.h"

namespace kvtest {

/// A delegate over a connection of its own, with a log of its own; no pool.
class DelegateTest : public FrameworkTest {
protected:
    /// A delegate that holds `groups` and the connection numbered 1 of "key".
    std::unique_ptr<ScriptedDelegate> Make(const Groups& groups, int maxPins = 10) {
        auto delegate = std::make_unique<ScriptedDelegate>(m_script);
        EXPECT_TRUE(
            delegate->Initialize(&m_driver, "key", m_driver.Take("key"), groups, maxPins, &m_delegateLog));
        m_driver.forgetCalls();
        return delegate;
    }
    /// Runs it as a worker does, and deletes it.
    void Run(std::unique_ptr<ScriptedDelegate> delegate) { EXPECT_EQ(delegate->DoWork(nullptr), nullptr); }

    /// The connection fails its test from the given one on, counted from 1, and there is no other.
    void LoseConnectionAtTest(int count) {
        m_driver.onTest = [this, count](int) { return ++m_tests < count; };
        m_driver.onCreate = [](int number, const KvMessageFile*) { return number == 1; };
    }

    Strings Notes() const { return NotesFrom(m_delegateLog, kDelegateSource); }
    Strings Returns() { return ReturnsOf(m_host.queue); }

    RecordingLog m_delegateLog;

private:
    int m_tests = 0;
};

}  // namespace kvtest
