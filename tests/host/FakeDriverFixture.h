#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "TempDir.h"

namespace kvhosttest {

inline constexpr const char* kFakeDriver = KV_BINARY_DIR "/libkvhost_fake_driver.so";

/// A test that loads the fake driver into its own process and has it record its calls.
class FakeDriverTest : public testing::Test {
protected:
    FakeDriverTest() { Set("KVFAKE_RECORD", m_folder.file("calls")); }
    ~FakeDriverTest() override {
        for (const std::string& name : m_vecSet) {
            ::unsetenv(name.c_str());
        }
    }

    /// Sets a variable that the fake driver reads, until the end of the test.
    void Set(const std::string& name, const std::string& value) {
        ::setenv(name.c_str(), value.c_str(), 1);
        m_vecSet.push_back(name);
    }

    /// The calls that the driver got so far.
    std::vector<std::string> Calls() const {
        std::vector<std::string> calls;
        std::ifstream stream(m_folder.file("calls"));
        for (std::string line; std::getline(stream, line);) {
            calls.push_back(line);
        }
        return calls;
    }

    const kvtest::TempDir m_folder;

private:
    std::vector<std::string> m_vecSet;
};

}  // namespace kvhosttest
