#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/ChildProcess.h"
#include "store/StoreFixture.h"

namespace kvhosttest {

/// A store, and kvhost as a child process that works on it. Times are told in UTC.
class CommandTest : public StoreTest {
protected:
    /// Runs "kvhost NAME --store FOLDER ARGUMENTS..." to its end and answers the exit status.
    int Run(const std::string& name, const std::vector<std::string>& arguments = {}) {
        std::vector<std::string> command{KV_BINARY_DIR "/kvhost", name, "--store", m_dir.path()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return RunProgram(command);
    }

    int RunProgram(const std::vector<std::string>& command) {
        m_pChild = std::make_unique<ChildProcess>(command, m_input);
        return m_pChild->Wait();
    }

    const std::string& Output() const { return m_pChild->Output(); }
    const std::string& Error() const { return m_pChild->Error(); }
    nlohmann::json Json() const { return nlohmann::json::parse(Output()); }

    /// Submits a job and has it fail with that reason.
    void SubmitFailed(const std::string& id, const std::string& reason, const std::string& carrier = "east") {
        Submit(Mail(id, carrier));
        const std::int64_t key = KeyOf(id);
        Ledger().BeginAttempts({key}, Now());
        Ledger().EndAttempts({Failed(key, reason)}, Now());
    }

    kvhost::JobLedger& Ledger() {
        if (!m_pLedger) {
            m_pLedger = std::make_unique<kvhost::JobLedger>(m_store);
            Start(*m_pLedger);
        }
        return *m_pLedger;
    }

    ChildProcess::Input m_input{{}, {{"TZ", "UTC"}, {"KVHOST_CONFIG", ""}}};

private:
    std::unique_ptr<kvhost::JobLedger> m_pLedger;
    std::unique_ptr<ChildProcess> m_pChild;
};

}  // namespace kvhosttest
