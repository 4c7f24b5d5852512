#pragma once

class KvProtocolDriverInterface;

// Drivers and dispatchers that note every virtual call. They are compiled apart from the tests that call them.

namespace kvcontract {

// Owned by the caller, who ends them through a slot of the destructor.
KvProtocolDriverInterface* NewRecordingProtocolDriver();
KvProtocolDriverInterface* NewRecordingAsynDriver();
KvProtocolDriverInterface* NewRecordingMultiThreadedDriver();
KvProtocolDriverInterface* NewRecordingSmtpDriver();

/// A KvSmartProtocolDriverDelegateIface; a KvSMTPMsgDispatcher.
void* NewRecordingDelegate();
void* NewRecordingDispatcher();

}  // namespace kvcontract
