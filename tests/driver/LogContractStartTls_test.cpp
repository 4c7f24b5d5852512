#include <gtest/gtest.h>

#include <map>
#include <string>

#include "HostDoubles.h"
#include "driver/LogListing.h"
#include "driver/SmtpDoubles.h"

// What a worker writes when the server demands STARTTLS in the middle of a transaction.

namespace {

using kvtest::AreTheLinesOf;
using kvtest::FileShelf;
using kvtest::HostDoubles;
using kvtest::LinesLogged;
using kvtest::LinesOfListing;
using kvtest::MailThrough;
using kvtest::ScriptedSmtpServer;
using kvtest::SmtpServerOptions;
using kvtest::TestCertificates;

constexpr const char* Listing = R"log(
# One message, refused in clear
info    delegate Processing session with 1 msg files group ...
trace   delegate Entering KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups()
info    delegate  >> Processing message group #0.
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache()
trace   smtp     Entering KvSMTPDriver::TestConnection
trace   sent     <= RSET<CR><LF>
trace   received => 250 2.0.0 reset<CR><LF>
trace   smtp     Leaving KvSMTPDriver::TestConnection with return value = 'true'
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache() with OBJECT.
debug   delegate  >>>> Dispatching 1way message jobid:'1001_1'.
trace   dispatch Entering KvSMTPMsgDispatcher::SendMessage
trace   sent     <= MAIL FROM: <ann@example.org><CR><LF>
trace   received => 530 5.7.0 Must issue a STARTTLS command first<CR><LF>

# The upgrade
debug   engine   Attempting TLS Hand Shake...
trace   sent     <= STARTTLS<CR><LF>
trace   received => 220 2.0.0 ready for TLS<CR><LF>
trace   sent*    <= EHLO [127.0.0.1]<CR><LF>
trace   recvd*   => 250 test.example<CR><LF>
debug   engine   Authorizing if required...

# The same message inside TLS
debug   engine   Re-Attempting message sending...
trace   sent*    <= MAIL FROM: <ann@example.org><CR><LF>
trace   recvd*   => 250 2.1.0 sender ok<CR><LF>
trace   sent*    <= RCPT TO: <bob@example.org><CR><LF>
trace   recvd*   => 250 2.1.5 recipient ok<CR><LF>
trace   sent*    <= DATA<CR><LF>
trace   recvd*   => 354 go ahead<CR><LF>
trace   text*    <= Mime-Version: 1.0<CR><LF>Subject: Subject<CR><LF>From: ann@example.org<CR><LF>Content-Type: multipart/mixed;<CR><LF><TAB>boundary="MujheKaamBataoMaiKiaKaronMaiKisKoKhaon"<CR><LF><CR><LF>--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon<CR><LF>Content-Type: text/plain<CR><LF><CR><LF>Text<CR><LF>--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon--<CR><LF>
trace   sent*    <= .<CR><LF>
trace   recvd*   => 250 2.0.0 queued<CR><LF>
info    dispatch Creating REPORT entry COMPLETED for job: job-1.
trace   dispatch Leaving KvSMTPDriver::SendMessage with return value = 'true'
trace   delegate Leaving KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups() with TRUE.
info    delegate Ending session ...
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache()
trace   pool     Entering KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl()
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl() with TRUE.
trace   pool     Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache() with TRUE.
)log";

/// A server that offers STARTTLS and takes mail inside TLS only.
SmtpServerOptions OfferingStartTls() {
    SmtpServerOptions options;
    options.extensions = {{"STARTTLS"}};
    options.extensionsInsideTls.emplace();
    options.tls = TestCertificates::Shared().serverTls();
    return options;
}

TEST(LogContractStartTlsTest, TheWorkerWritesTheseLinesInThisOrder) {
    ScriptedSmtpServer server(OfferingStartTls());
    server.on("MAIL").inClear().reply("530 5.7.0 Must issue a STARTTLS command first\r\n");
    HostDoubles host;
    FileShelf files;
    KvSMTPDriver driver;
    host.lendTo(driver);
    std::map<std::string, std::string> settings;
    ASSERT_TRUE(driver.Configure(settings));
    ASSERT_TRUE(driver.Setup(&host.instanceConf));
    auto status = KvMessengerReportsMngrInterface::REPORT_NONE;
    EXPECT_TRUE(driver.SendAMessage(files.add(MailThrough(server)
                                                  .security(SMTP_SECURITY_ON_DEMAND)
                                                  .caFile(TestCertificates::Shared().caFile())),
                                    status));
    EXPECT_TRUE(driver.PeriodicEvent());
    EXPECT_TRUE(
        host.log.waitFor("Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache() with TRUE."));
    EXPECT_TRUE(driver.Cleanup());
    EXPECT_TRUE(AreTheLinesOf(LinesOfListing(Listing), LinesLogged(host.log, false, {})));
}

}  // namespace
