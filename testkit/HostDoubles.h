#pragma once

#include "KvMessengerInstConfBasic.h"
#include "RecordingLog.h"
#include "RecordingReports.h"
#include "ReturnQueue.h"

namespace kvtest {

/// The three services that a host lends to a driver. Outlives the driver that it is lent to.
///
///     HostDoubles host;
///     host.lendTo(*driver);
struct HostDoubles {
    RecordingLog log;
    RecordingReports reports;
    ReturnQueue queue;
    KvMessengerInstConfBasic instanceConf;

    /// For a KvProtocolDriverInterface, or whatever has its three members.
    template <typename Driver>
    void lendTo(Driver& driver) {
        driver.m_pLog = &log;
        driver.m_pReportsMngr = &reports;
        driver.m_pMsgFileQueue = &queue;
    }
};

}  // namespace kvtest
