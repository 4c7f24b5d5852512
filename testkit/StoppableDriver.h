#pragma once

#include <map>
#include <string>

#include "HostDoubles.h"
#include "KvSmtpDriver.h"
#include "KvconThreadPool.h"

namespace kvtest {

/// The real driver, set up with its defaults and without a log, with a hand on its pool: Cleanup would give the
/// workers a minute.
class StoppableDriver : public KvSMTPDriver {
public:
    explicit StoppableDriver(HostDoubles& host) {
        host.lendTo(*this);
        m_pLog = nullptr;
        std::map<std::string, std::string> settings;
        Configure(settings);
        Setup(&host.instanceConf);
    }
    ~StoppableDriver() override { StopAndCleanUp(); }

    /// Whether the driver took the file.
    bool HandOver(KvMessageFile& file) {
        auto status = KvMessengerReportsMngrInterface::REPORT_NONE;
        return SendAMessage(&file, status);
    }

    void StopAndCleanUp() {
        if (m_pThreadPool != nullptr) {
            m_pThreadPool->StopTasks();
            m_pThreadPool->Stop(100);
            Cleanup();
        }
    }
};

}  // namespace kvtest
