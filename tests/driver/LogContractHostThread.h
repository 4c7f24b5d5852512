#pragma once

#include <string>

#include "driver/LogListing.h"

namespace kvtest {

/// What the host's thread writes in the course of LogContractScenario, line by line, as LogListing.h has it.
inline const std::string HostThreadListing =
    R"log(
# Configure and Setup
trace   session  Entering KvSmartAsynProtocolDriver::Configure()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ConfigureExt()
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ConfigureExt() with TRUE.
trace   session  Leaving KvSmartAsynProtocolDriver::Configure() with TRUE.
trace   session  Entering KvSmartAsynProtocolDriver::Setup()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::SetupExt()
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::SetupExt() with TRUE.
trace   session  Leaving KvSmartAsynProtocolDriver::Setup() with TRUE.

# Intake of the first cycle: a group of 25 for north
)log" +
    RepeatLines(1, 25, R"log(
trace   session  Entering KvSmartAsynProtocolDriver::SendAMessage()
trace   smtp     Entering KvSMTPDriver::GetCacheKey
trace   smtp     Leaving KvSMTPDriver::GetCacheKey with return value = '{1}-{$NORTH}-{1}-{ann}-{secret}'
trace   session  Entering KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession()
trace   session  Leaving KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession() with TRUE.
trace   session  Leaving KvSmartAsynProtocolDriver::SendAMessage() with TRUE.
)log") +
    R"log(
# ... and one message for south
trace   session  Entering KvSmartAsynProtocolDriver::SendAMessage()
trace   smtp     Entering KvSMTPDriver::GetCacheKey
trace   smtp     Leaving KvSMTPDriver::GetCacheKey with return value = '{2}-{$SOUTH}-{1}-{bob}-{hidden}'
trace   session  Entering KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession()
trace   session  Leaving KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession() with TRUE.
trace   session  Leaving KvSmartAsynProtocolDriver::SendAMessage() with TRUE.

# The first cycle, first pass: north is handed over
trace   session  Entering KvSmartAsynProtocolDriver::PeriodicEvent()
trace   session  Starting BULK dispatch cycle 1 ...
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl()
info    pool     Creating new connection object.
trace   smtp     Entering KvSMTPDriver::CreateConnection
trace   received => 220 north.example ESMTP<CR><LF>
trace   sent     <= EHLO [127.0.0.1]<CR><LF>
trace   received => 250-north.example<CR><LF>250 AUTH PLAIN<CR><LF>
trace   sent     <= AUTH PLAIN<CR><LF>
trace   received => 334 <CR><LF>
trace   sent     <= AGFubgBzZWNyZXQ=<CR><LF>
trace   received => 235 2.7.0 authenticated<CR><LF>
trace   smtp     Leaving KvSMTPDriver::CreateConnection with return value = 'true'
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl() with OBJECT.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache() with OBJECT.
trace   pool     Creating Message dispatch delegate.
trace   smtp     Entering KvSMTPDriver::GetProtocolDriverDelegate
trace   smtp     Leaving KvSMTPDriver::GetProtocolDriverDelegate with return value = 'SMTP Msg Dispatcher'
debug   pool     Initializing message dispatch delegate.
trace   pool     Adding delegate the thread pool queue ...
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession() with TRUE.
debug   session   >> Successfully processed carrier session: {1}-{$NORTH}-{1}-{ann}-{secret}/north of msg files: 1; remaining now: 0.

# South meets the limit of all connections, with none of them idle
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::DeleteOldestUsedConnection()
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::DeleteOldestUsedConnection() with FALSE.
error   pool     The max. limit for the total connections (=1) has reached. Failed to make capacity for this one.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl() with NULL.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache() with NULL.
info    pool     Unable to get connection object. Delaying carrier session '{2}-{$SOUTH}-{1}-{bob}-{hidden}' processing.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession() with TRUE.
debug   session   >> Successfully processed carrier session: {2}-{$SOUTH}-{1}-{bob}-{hidden}/south of msg files: 1; remaining now: 1.

# Second pass: the connection to north is idle by now and gives way to one to south
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::DeleteOldestUsedConnection()
trace   smtp     Entering KvSMTPDriver::CloseConnection
trace   smtp     Leaving KvSMTPDriver::CloseConnection with return value = 'true'
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::DeleteOldestUsedConnection() with TRUE.
warning pool     The max. limit for the total connections (=1) has reached. Deleted an old connection to make room.
info    pool     Creating new connection object.
trace   smtp     Entering KvSMTPDriver::CreateConnection
trace   received => 220 south.example ESMTP<CR><LF>
trace   sent     <= EHLO [127.0.0.1]<CR><LF>
trace   received => 250-south.example<CR><LF>250 AUTH LOGIN<CR><LF>
trace   sent     <= AUTH LOGIN<CR><LF>
trace   received => 334 VXNlcm5hbWU6<CR><LF>
trace   sent     <= Ym9i<CR><LF>
trace   received => 334 UGFzc3dvcmQ6<CR><LF>
trace   sent     <= aGlkZGVu<CR><LF>
trace   received => 235 2.7.0 authenticated<CR><LF>
trace   smtp     Leaving KvSMTPDriver::CreateConnection with return value = 'true'
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl() with OBJECT.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache() with OBJECT.
trace   pool     Creating Message dispatch delegate.
trace   smtp     Entering KvSMTPDriver::GetProtocolDriverDelegate
trace   smtp     Leaving KvSMTPDriver::GetProtocolDriverDelegate with return value = 'SMTP Msg Dispatcher'
debug   pool     Initializing message dispatch delegate.
trace   pool     Adding delegate the thread pool queue ...
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession() with TRUE.
debug   session   >> Successfully processed carrier session: {2}-{$SOUTH}-{1}-{bob}-{hidden}/south of msg files: 1; remaining now: 0.
trace   session  Terminating BULK dispatch cycle ...
trace   session  Leaving KvSmartAsynProtocolDriver::PeriodicEvent() with TRUE.

# Intake of the second cycle: one message for south
trace   session  Entering KvSmartAsynProtocolDriver::SendAMessage()
trace   smtp     Entering KvSMTPDriver::GetCacheKey
trace   smtp     Leaving KvSMTPDriver::GetCacheKey with return value = '{2}-{$SOUTH}-{1}-{bob}-{hidden}'
trace   session  Entering KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession()
trace   session  Leaving KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession() with TRUE.
trace   session  Leaving KvSmartAsynProtocolDriver::SendAMessage() with TRUE.

# ... and a group of two for the carrier that nobody serves
)log" +
    RepeatLines(1, 2, R"log(
trace   session  Entering KvSmartAsynProtocolDriver::SendAMessage()
trace   smtp     Entering KvSMTPDriver::GetCacheKey
trace   smtp     Leaving KvSMTPDriver::GetCacheKey with return value = '{3}-{$LOST}-{1}-{}-{}'
trace   session  Entering KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession()
trace   session  Leaving KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession() with TRUE.
trace   session  Leaving KvSmartAsynProtocolDriver::SendAMessage() with TRUE.
)log") +
    R"log(
# The second cycle, first pass: south's only connection is still in use
trace   session  Entering KvSmartAsynProtocolDriver::PeriodicEvent()
trace   session  Starting BULK dispatch cycle 2 ...
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl()
info    pool     The max. limit for the same carrier connections (=1) has reached. Delaying connection creation.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl() with NULL.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache() with NULL.
info    pool     Unable to get connection object. Delaying carrier session '{2}-{$SOUTH}-{1}-{bob}-{hidden}' processing.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession() with TRUE.
debug   session   >> Successfully processed carrier session: {2}-{$SOUTH}-{1}-{bob}-{hidden}/south of msg files: 1; remaining now: 1.

# ... and so it is for the carrier that nobody serves
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::DeleteOldestUsedConnection()
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::DeleteOldestUsedConnection() with FALSE.
error   pool     The max. limit for the total connections (=1) has reached. Failed to make capacity for this one.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl() with NULL.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache() with NULL.
info    pool     Unable to get connection object. Delaying carrier session '{3}-{$LOST}-{1}-{}-{}' processing.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession() with TRUE.
debug   session   >> Successfully processed carrier session: {3}-{$LOST}-{1}-{}-{}/lost of msg files: 1; remaining now: 1.

# Second pass: south's idle connection fails its test and is replaced
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl()
info    pool     Getting connection object from cache.
trace   smtp     Entering KvSMTPDriver::TestConnection
trace   sent     <= RSET<CR><LF>
trace   received => 421 4.3.2 shutting down<CR><LF>
trace   smtp     Leaving KvSMTPDriver::TestConnection with return value = 'false'
trace   smtp     Entering KvSMTPDriver::CloseConnection
trace   smtp     Leaving KvSMTPDriver::CloseConnection with return value = 'true'
info    pool     Creating new connection object.
trace   smtp     Entering KvSMTPDriver::CreateConnection
trace   received => 220 south.example ESMTP<CR><LF>
trace   sent     <= EHLO [127.0.0.1]<CR><LF>
trace   received => 250-south.example<CR><LF>250 AUTH LOGIN<CR><LF>
trace   sent     <= AUTH LOGIN<CR><LF>
trace   received => 334 VXNlcm5hbWU6<CR><LF>
trace   sent     <= Ym9i<CR><LF>
trace   received => 334 UGFzc3dvcmQ6<CR><LF>
trace   sent     <= aGlkZGVu<CR><LF>
trace   received => 235 2.7.0 authenticated<CR><LF>
trace   smtp     Leaving KvSMTPDriver::CreateConnection with return value = 'true'
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl() with OBJECT.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache() with OBJECT.
trace   pool     Creating Message dispatch delegate.
trace   smtp     Entering KvSMTPDriver::GetProtocolDriverDelegate
trace   smtp     Leaving KvSMTPDriver::GetProtocolDriverDelegate with return value = 'SMTP Msg Dispatcher'
debug   pool     Initializing message dispatch delegate.
trace   pool     Adding delegate the thread pool queue ...
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession() with TRUE.
debug   session   >> Successfully processed carrier session: {2}-{$SOUTH}-{1}-{bob}-{hidden}/south of msg files: 1; remaining now: 0.

# That one gives way to a connection that cannot be made
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::DeleteOldestUsedConnection()
trace   smtp     Entering KvSMTPDriver::CloseConnection
trace   smtp     Leaving KvSMTPDriver::CloseConnection with return value = 'true'
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::DeleteOldestUsedConnection() with TRUE.
warning pool     The max. limit for the total connections (=1) has reached. Deleted an old connection to make room.
info    pool     Creating new connection object.
trace   smtp     Entering KvSMTPDriver::CreateConnection
error   smtp     Error: Exception raised! IO path[$LOST] File[../src/KvioClientSocket] Line[149] Msg[Socket Connecting Failed] SysMsg[]
trace   smtp     Leaving KvSMTPDriver::CreateConnection with return value = 'false'
error   pool     Failed to create new connection for carrier: {3}-{$LOST}-{1}-{}-{}.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl() with NULL.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache() with NULL.
info    pool     Unable to get connection object. Incorrect carrier configuration {3}-{$LOST}-{1}-{}-{} and/or carrier serviceis unreachable.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession() with FALSE.
error   session   >> Error occurred while processing carrier session: {3}-{$LOST}-{1}-{}-{}/lost with msg files:1. Failing all messages.
error   session  Failing message job id: 301-1. Reason: Failed to create connection. Bad carrier configuration or carrier unreachable.
error   session  Failing message job id: 301-2. Reason: Failed to create connection. Bad carrier configuration or carrier unreachable.
debug   session   >> Successfully processed carrier session: {3}-{$LOST}-{1}-{}-{}/lost of msg files: 1; remaining now: 0.
trace   session  Terminating BULK dispatch cycle ...
trace   session  Leaving KvSmartAsynProtocolDriver::PeriodicEvent() with TRUE.

# Intake of the third cycle: a two-way message and a query for north
trace   session  Entering KvSmartAsynProtocolDriver::SendAMessage()
trace   smtp     Entering KvSMTPDriver::GetCacheKey
trace   smtp     Leaving KvSMTPDriver::GetCacheKey with return value = '{1}-{$NORTH}-{1}-{ann}-{secret}'
trace   session  Entering KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession()
trace   session  Leaving KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession() with TRUE.
trace   session  Leaving KvSmartAsynProtocolDriver::SendAMessage() with TRUE.
trace   session  Entering KvSmartAsynProtocolDriver::Send2WayRespQuery()
trace   session  Entering KvSmartAsynProtocolDriver::SendAMessage()
trace   smtp     Entering KvSMTPDriver::GetCacheKey
trace   smtp     Leaving KvSMTPDriver::GetCacheKey with return value = '{1}-{$NORTH}-{1}-{ann}-{secret}'
trace   session  Entering KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession()
trace   session  Leaving KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession() with TRUE.
trace   session  Leaving KvSmartAsynProtocolDriver::SendAMessage() with TRUE.
trace   session  Leaving KvSmartAsynProtocolDriver::Send2WayRespQuery() with TRUE.

# The third cycle: north is handed over, over a new connection
trace   session  Entering KvSmartAsynProtocolDriver::PeriodicEvent()
trace   session  Starting BULK dispatch cycle 3 ...
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl()
info    pool     Creating new connection object.
trace   smtp     Entering KvSMTPDriver::CreateConnection
trace   received => 220 north.example ESMTP<CR><LF>
trace   sent     <= EHLO [127.0.0.1]<CR><LF>
trace   received => 250-north.example<CR><LF>250 AUTH PLAIN<CR><LF>
trace   sent     <= AUTH PLAIN<CR><LF>
trace   received => 334 <CR><LF>
trace   sent     <= AGFubgBzZWNyZXQ=<CR><LF>
trace   received => 235 2.7.0 authenticated<CR><LF>
trace   smtp     Leaving KvSMTPDriver::CreateConnection with return value = 'true'
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl() with OBJECT.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache() with OBJECT.
trace   pool     Creating Message dispatch delegate.
trace   smtp     Entering KvSMTPDriver::GetProtocolDriverDelegate
trace   smtp     Leaving KvSMTPDriver::GetProtocolDriverDelegate with return value = 'SMTP Msg Dispatcher'
debug   pool     Initializing message dispatch delegate.
trace   pool     Adding delegate the thread pool queue ...
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession() with TRUE.
debug   session   >> Successfully processed carrier session: {1}-{$NORTH}-{1}-{ann}-{secret}/north of msg files: 2; remaining now: 0.
trace   session  Terminating BULK dispatch cycle ...
trace   session  Leaving KvSmartAsynProtocolDriver::PeriodicEvent() with TRUE.

# Intake of the fourth cycle: one message and a group of two for north
trace   session  Entering KvSmartAsynProtocolDriver::SendAMessage()
trace   smtp     Entering KvSMTPDriver::GetCacheKey
trace   smtp     Leaving KvSMTPDriver::GetCacheKey with return value = '{1}-{$NORTH}-{1}-{ann}-{secret}'
trace   session  Entering KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession()
trace   session  Leaving KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession() with TRUE.
trace   session  Leaving KvSmartAsynProtocolDriver::SendAMessage() with TRUE.
)log" +
    RepeatLines(1, 2, R"log(
trace   session  Entering KvSmartAsynProtocolDriver::SendAMessage()
trace   smtp     Entering KvSMTPDriver::GetCacheKey
trace   smtp     Leaving KvSMTPDriver::GetCacheKey with return value = '{1}-{$NORTH}-{1}-{ann}-{secret}'
trace   session  Entering KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession()
trace   session  Leaving KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession() with TRUE.
trace   session  Leaving KvSmartAsynProtocolDriver::SendAMessage() with TRUE.
)log") +
    R"log(
# ... and one message for south
trace   session  Entering KvSmartAsynProtocolDriver::SendAMessage()
trace   smtp     Entering KvSMTPDriver::GetCacheKey
trace   smtp     Leaving KvSMTPDriver::GetCacheKey with return value = '{2}-{$SOUTH}-{1}-{bob}-{hidden}'
trace   session  Entering KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession()
trace   session  Leaving KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession() with TRUE.
trace   session  Leaving KvSmartAsynProtocolDriver::SendAMessage() with TRUE.

# The fourth cycle: north's idle connection passes its test
trace   session  Entering KvSmartAsynProtocolDriver::PeriodicEvent()
trace   session  Starting BULK dispatch cycle 4 ...
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl()
info    pool     Getting connection object from cache.
trace   smtp     Entering KvSMTPDriver::TestConnection
trace   sent     <= RSET<CR><LF>
trace   received => 250 2.0.0 reset<CR><LF>
trace   smtp     Leaving KvSMTPDriver::TestConnection with return value = 'true'
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl() with OBJECT.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache() with OBJECT.
trace   pool     Creating Message dispatch delegate.
trace   smtp     Entering KvSMTPDriver::GetProtocolDriverDelegate
trace   smtp     Leaving KvSMTPDriver::GetProtocolDriverDelegate with return value = 'SMTP Msg Dispatcher'
debug   pool     Initializing message dispatch delegate.
trace   pool     Adding delegate the thread pool queue ...
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession() with TRUE.
debug   session   >> Successfully processed carrier session: {1}-{$NORTH}-{1}-{ann}-{secret}/north of msg files: 2; remaining now: 0.

# The worker has lost it again, so that there is room for one to south
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl()
info    pool     Creating new connection object.
trace   smtp     Entering KvSMTPDriver::CreateConnection
trace   received => 220 south.example ESMTP<CR><LF>
trace   sent     <= EHLO [127.0.0.1]<CR><LF>
trace   received => 250-south.example<CR><LF>250 AUTH LOGIN<CR><LF>
trace   sent     <= AUTH LOGIN<CR><LF>
trace   received => 334 VXNlcm5hbWU6<CR><LF>
trace   sent     <= Ym9i<CR><LF>
trace   received => 334 UGFzc3dvcmQ6<CR><LF>
trace   sent     <= aGlkZGVu<CR><LF>
trace   received => 235 2.7.0 authenticated<CR><LF>
trace   smtp     Leaving KvSMTPDriver::CreateConnection with return value = 'true'
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl() with OBJECT.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache() with OBJECT.
trace   pool     Creating Message dispatch delegate.
trace   smtp     Entering KvSMTPDriver::GetProtocolDriverDelegate
trace   smtp     Leaving KvSMTPDriver::GetProtocolDriverDelegate with return value = 'SMTP Msg Dispatcher'
debug   pool     Initializing message dispatch delegate.
trace   pool     Adding delegate the thread pool queue ...
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession() with TRUE.
debug   session   >> Successfully processed carrier session: {2}-{$SOUTH}-{1}-{bob}-{hidden}/south of msg files: 1; remaining now: 0.
trace   session  Terminating BULK dispatch cycle ...
trace   session  Leaving KvSmartAsynProtocolDriver::PeriodicEvent() with TRUE.

# Cleanup closes the idle connection
trace   session  Entering KvSmartAsynProtocolDriver::Cleanup()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::SetupExt()
trace   smtp     Entering KvSMTPDriver::CloseConnection
trace   smtp     Leaving KvSMTPDriver::CloseConnection with return value = 'true'
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::SetupExt() with TRUE.
trace   session  Leaving KvSmartAsynProtocolDriver::Cleanup() with TRUE.
)log";

}  // namespace kvtest
