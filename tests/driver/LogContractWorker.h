#pragma once

#include <string>

#include "driver/LogListing.h"

namespace kvtest {

/// What the worker writes in the course of LogContractScenario, line by line, as LogListing.h has it.
inline const std::string WorkerListing =
    R"log(
# North, the group of 25: the first ten
info    delegate Processing session with 1 msg files group ...
trace   delegate Entering KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups()
info    delegate  >> Processing message group #0.
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache()
trace   smtp     Entering KvSMTPDriver::TestConnection
trace   sent     <= RSET<CR><LF>
trace   received => 250 2.0.0 reset<CR><LF>
trace   smtp     Leaving KvSMTPDriver::TestConnection with return value = 'true'
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache() with OBJECT.
debug   delegate  >>>> Dispatching message group; cycle#1.
trace   dispatch Entering KvSMTPMsgDispatcher::SendMessageGroup
trace   sent     <= MAIL FROM: <ann@example.org><CR><LF>
trace   received => 250 2.1.0 sender ok<CR><LF>
)log" +
    RepeatLines(1, 10, R"log(
trace   sent     <= RCPT TO: <to{n}@example.org><CR><LF>
trace   received => 250 2.1.5 recipient ok<CR><LF>
)log") +
    R"log(
trace   sent     <= DATA<CR><LF>
trace   received => 354 go ahead<CR><LF>
trace   sent     <= Mime-Version: 1.0<CR><LF>Subject: Subject<CR><LF>From: ann@example.org<CR><LF>Content-Type: multipart/mixed;<CR><LF><TAB>boundary="MujheKaamBataoMaiKiaKaronMaiKisKoKhaon"<CR><LF><CR><LF>--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon<CR><LF>Content-Type: text/plain<CR><LF><CR><LF>Text<CR><LF>--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon--<CR><LF>
trace   sent     <= .<CR><LF>
trace   received => 250 2.0.0 queued<CR><LF>
)log" +
    RepeatLines(1, 10, R"log(
info    dispatch Creating REPORT entry COMPLETED for job: 101-{n}.
)log") +
    R"log(
trace   dispatch Leaving KvSMTPDriver::SendMessageGroup with return value = 'true'

# The next ten, of which the third recipient is refused
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache()
trace   smtp     Entering KvSMTPDriver::TestConnection
trace   sent     <= RSET<CR><LF>
trace   received => 250 2.0.0 reset<CR><LF>
trace   smtp     Leaving KvSMTPDriver::TestConnection with return value = 'true'
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache() with OBJECT.
debug   delegate  >>>> Dispatching message group; cycle#2.
trace   dispatch Entering KvSMTPMsgDispatcher::SendMessageGroup
trace   sent     <= MAIL FROM: <ann@example.org><CR><LF>
trace   received => 250 2.1.0 sender ok<CR><LF>
)log" +
    RepeatLines(11, 12, R"log(
trace   sent     <= RCPT TO: <to{n}@example.org><CR><LF>
trace   received => 250 2.1.5 recipient ok<CR><LF>
)log") +
    R"log(
trace   sent     <= RCPT TO: <to13@example.org><CR><LF>
trace   received => 550 5.1.1 no such user<CR><LF>
error   dispatch Error: 5.1.1 no such user\r\n
)log" +
    RepeatLines(11, 20, R"log(
info    dispatch Creating REPORT entry FAILED for job: 101-{n} with FAILURE REASON: '5.1.1 no such user\r\n'.
)log") +
    R"log(
trace   dispatch Leaving KvSMTPDriver::SendMessageGroup with return value = 'false'
error   delegate  >>>>>> Failed to dispatch message group.

# The connection fails its test and is replaced
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache()
trace   smtp     Entering KvSMTPDriver::TestConnection
trace   sent     <= RSET<CR><LF>
trace   received => 421 4.3.2 shutting down<CR><LF>
trace   smtp     Leaving KvSMTPDriver::TestConnection with return value = 'false'
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl()
trace   smtp     Entering KvSMTPDriver::CloseConnection
trace   smtp     Leaving KvSMTPDriver::CloseConnection with return value = 'true'
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl() with TRUE.
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
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache() with OBJECT.

# The last five, over the new connection
debug   delegate  >>>> Dispatching message group; cycle#3.
trace   dispatch Entering KvSMTPMsgDispatcher::SendMessageGroup
trace   sent     <= MAIL FROM: <ann@example.org><CR><LF>
trace   received => 250 2.1.0 sender ok<CR><LF>
)log" +
    RepeatLines(21, 25, R"log(
trace   sent     <= RCPT TO: <to{n}@example.org><CR><LF>
trace   received => 250 2.1.5 recipient ok<CR><LF>
)log") +
    R"log(
trace   sent     <= DATA<CR><LF>
trace   received => 354 go ahead<CR><LF>
trace   sent     <= Mime-Version: 1.0<CR><LF>Subject: Subject<CR><LF>From: ann@example.org<CR><LF>Content-Type: multipart/mixed;<CR><LF><TAB>boundary="MujheKaamBataoMaiKiaKaronMaiKisKoKhaon"<CR><LF><CR><LF>--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon<CR><LF>Content-Type: text/plain<CR><LF><CR><LF>Text<CR><LF>--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon--<CR><LF>
trace   sent     <= .<CR><LF>
trace   received => 250 2.0.0 queued<CR><LF>
)log" +
    RepeatLines(21, 25, R"log(
info    dispatch Creating REPORT entry COMPLETED for job: 101-{n}.
)log") +
    R"log(
trace   dispatch Leaving KvSMTPDriver::SendMessageGroup with return value = 'true'
trace   delegate Leaving KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups() with TRUE.
info    delegate Ending session ...
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl()
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl() with TRUE.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache() with TRUE.

# South, one message to a recipient who is refused
info    delegate Processing session with 1 msg files group ...
trace   delegate Entering KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups()
info    delegate  >> Processing message group #0.
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache()
trace   smtp     Entering KvSMTPDriver::TestConnection
trace   sent     <= RSET<CR><LF>
trace   received => 250 2.0.0 reset<CR><LF>
trace   smtp     Leaving KvSMTPDriver::TestConnection with return value = 'true'
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache() with OBJECT.
debug   delegate  >>>> Dispatching 1way message jobid:'201_1'.
trace   dispatch Entering KvSMTPMsgDispatcher::SendMessage
trace   sent     <= MAIL FROM: <ann@example.org><CR><LF>
trace   received => 250 2.1.0 sender ok<CR><LF>
trace   sent     <= RCPT TO: <gone@example.org><CR><LF>
trace   received => 550 5.1.1 gone<CR><LF>
error   dispatch Error: 5.1.1 gone\r\n
info    dispatch Creating REPORT entry FAILED for job: 201-1 with FAILURE REASON: '5.1.1 gone\r\n'.
trace   dispatch Leaving KvSMTPDriver::SendMessage with return value = 'false'
error   delegate  >>>>>> Failed to dispatch 1way message.
trace   delegate Leaving KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups() with TRUE.
info    delegate Ending session ...
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl()
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl() with TRUE.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache() with TRUE.

# South, one message
info    delegate Processing session with 1 msg files group ...
trace   delegate Entering KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups()
info    delegate  >> Processing message group #0.
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache()
trace   smtp     Entering KvSMTPDriver::TestConnection
trace   sent     <= RSET<CR><LF>
trace   received => 250 2.0.0 reset<CR><LF>
trace   smtp     Leaving KvSMTPDriver::TestConnection with return value = 'true'
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache() with OBJECT.
debug   delegate  >>>> Dispatching 1way message jobid:'202_1'.
trace   dispatch Entering KvSMTPMsgDispatcher::SendMessage
trace   sent     <= MAIL FROM: <ann@example.org><CR><LF>
trace   received => 250 2.1.0 sender ok<CR><LF>
trace   sent     <= RCPT TO: <bob@example.org><CR><LF>
trace   received => 250 2.1.5 recipient ok<CR><LF>
trace   sent     <= DATA<CR><LF>
trace   received => 354 go ahead<CR><LF>
trace   sent     <= Mime-Version: 1.0<CR><LF>Subject: Subject<CR><LF>From: ann@example.org<CR><LF>Content-Type: multipart/mixed;<CR><LF><TAB>boundary="MujheKaamBataoMaiKiaKaronMaiKisKoKhaon"<CR><LF><CR><LF>--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon<CR><LF>Content-Type: text/plain<CR><LF><CR><LF>Text<CR><LF>--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon--<CR><LF>
trace   sent     <= .<CR><LF>
trace   received => 250 2.0.0 queued<CR><LF>
info    dispatch Creating REPORT entry COMPLETED for job: 202-1.
trace   dispatch Leaving KvSMTPDriver::SendMessage with return value = 'true'
trace   delegate Leaving KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups() with TRUE.
info    delegate Ending session ...
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl()
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl() with TRUE.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache() with TRUE.

# North, a two-way message and a query, which SMTP has not
info    delegate Processing session with 2 msg files group ...
trace   delegate Entering KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups()
info    delegate  >> Processing message group #0.
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache()
trace   smtp     Entering KvSMTPDriver::TestConnection
trace   sent     <= RSET<CR><LF>
trace   received => 250 2.0.0 reset<CR><LF>
trace   smtp     Leaving KvSMTPDriver::TestConnection with return value = 'true'
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache() with OBJECT.
debug   delegate  >>>> Dispatching 2way message jobid:'103_1'.
trace   dispatch Entering KvSMTPMsgDispatcher::Send2WayMessage
trace   dispatch Leaving KvSMTPDriver::Send2WayMessage with return value = 'false'
error   delegate  >>>>>> Failed to dispatch 2way message.
info    delegate  >> Processing message group #1.
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache()
trace   smtp     Entering KvSMTPDriver::TestConnection
trace   sent     <= RSET<CR><LF>
trace   received => 250 2.0.0 reset<CR><LF>
trace   smtp     Leaving KvSMTPDriver::TestConnection with return value = 'true'
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache() with OBJECT.
debug   delegate  >>>> Dispatching query for 2way response jobid:'104_1'.
trace   dispatch Entering KvSMTPMsgDispatcher::Query2WayResponse
trace   dispatch Leaving KvSMTPDriver::Query2WayResponse with return value = 'false'
error   delegate  >>>>>> Failed to dispatch query for 2way response.
trace   delegate Leaving KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups() with TRUE.
info    delegate Ending session ...
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl()
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl() with TRUE.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache() with TRUE.

# North, one message
info    delegate Processing session with 2 msg files group ...
trace   delegate Entering KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups()
info    delegate  >> Processing message group #0.
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache()
trace   smtp     Entering KvSMTPDriver::TestConnection
trace   sent     <= RSET<CR><LF>
trace   received => 250 2.0.0 reset<CR><LF>
trace   smtp     Leaving KvSMTPDriver::TestConnection with return value = 'true'
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache() with OBJECT.
debug   delegate  >>>> Dispatching 1way message jobid:'105_1'.
trace   dispatch Entering KvSMTPMsgDispatcher::SendMessage
trace   sent     <= MAIL FROM: <ann@example.org><CR><LF>
trace   received => 250 2.1.0 sender ok<CR><LF>
trace   sent     <= RCPT TO: <bob@example.org><CR><LF>
trace   received => 250 2.1.5 recipient ok<CR><LF>
trace   sent     <= DATA<CR><LF>
trace   received => 354 go ahead<CR><LF>
trace   sent     <= Mime-Version: 1.0<CR><LF>Subject: Subject<CR><LF>From: ann@example.org<CR><LF>Content-Type: multipart/mixed;<CR><LF><TAB>boundary="MujheKaamBataoMaiKiaKaronMaiKisKoKhaon"<CR><LF><CR><LF>--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon<CR><LF>Content-Type: text/plain<CR><LF><CR><LF>Text<CR><LF>--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon--<CR><LF>
trace   sent     <= .<CR><LF>
trace   received => 250 2.0.0 queued<CR><LF>
info    dispatch Creating REPORT entry COMPLETED for job: 105-1.
trace   dispatch Leaving KvSMTPDriver::SendMessage with return value = 'true'

# The connection fails its test, and north takes no other: the group of two fails
info    delegate  >> Processing message group #1.
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache()
trace   smtp     Entering KvSMTPDriver::TestConnection
trace   sent     <= RSET<CR><LF>
trace   received => 421 4.3.2 shutting down<CR><LF>
trace   smtp     Leaving KvSMTPDriver::TestConnection with return value = 'false'
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl()
trace   smtp     Entering KvSMTPDriver::CloseConnection
trace   smtp     Leaving KvSMTPDriver::CloseConnection with return value = 'true'
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl() with TRUE.
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl()
info    pool     Creating new connection object.
trace   smtp     Entering KvSMTPDriver::CreateConnection
trace   received => 554 5.3.2 no service<CR><LF>
error   smtp     Error: 5.3.2 no service\r\n
trace   smtp     Leaving KvSMTPDriver::CreateConnection with return value = 'false'
error   pool     Failed to create new connection for carrier: {1}-{$NORTH}-{1}-{ann}-{secret}.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl() with NULL.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache() with NULL.
error   delegate Unable to get connection object. Incorrect carrier configuration {1}-{$NORTH}-{1}-{ann}-{secret} and/or carrier service is unreachable. Dropping current dispatch cycle.
trace   delegate Leaving KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups() with FALSE.
info    delegate Ending session ...
error   delegate Failing message job id: 106-1. Reason: Failed to create connection. Bad carrier configuration or carrier unreachable.
error   delegate Failing message job id: 106-2. Reason: Failed to create connection. Bad carrier configuration or carrier unreachable.
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl()
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl() with FALSE.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache() with FALSE.

# South, one message
info    delegate Processing session with 1 msg files group ...
trace   delegate Entering KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups()
info    delegate  >> Processing message group #0.
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache()
trace   smtp     Entering KvSMTPDriver::TestConnection
trace   sent     <= RSET<CR><LF>
trace   received => 250 2.0.0 reset<CR><LF>
trace   smtp     Leaving KvSMTPDriver::TestConnection with return value = 'true'
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache() with OBJECT.
debug   delegate  >>>> Dispatching 1way message jobid:'107_1'.
trace   dispatch Entering KvSMTPMsgDispatcher::SendMessage
trace   sent     <= MAIL FROM: <ann@example.org><CR><LF>
trace   received => 250 2.1.0 sender ok<CR><LF>
trace   sent     <= RCPT TO: <bob@example.org><CR><LF>
trace   received => 250 2.1.5 recipient ok<CR><LF>
trace   sent     <= DATA<CR><LF>
trace   received => 354 go ahead<CR><LF>
trace   sent     <= Mime-Version: 1.0<CR><LF>Subject: Subject<CR><LF>From: ann@example.org<CR><LF>Content-Type: multipart/mixed;<CR><LF><TAB>boundary="MujheKaamBataoMaiKiaKaronMaiKisKoKhaon"<CR><LF><CR><LF>--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon<CR><LF>Content-Type: text/plain<CR><LF><CR><LF>Text<CR><LF>--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon--<CR><LF>
trace   sent     <= .<CR><LF>
trace   received => 250 2.0.0 queued<CR><LF>
info    dispatch Creating REPORT entry COMPLETED for job: 107-1.
trace   dispatch Leaving KvSMTPDriver::SendMessage with return value = 'true'
trace   delegate Leaving KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups() with TRUE.
info    delegate Ending session ...
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl()
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl() with TRUE.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache() with TRUE.
)log";

}  // namespace kvtest
