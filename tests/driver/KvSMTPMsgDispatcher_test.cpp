#include "KvSMTPMsgDispatcher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>
#include <string>

#include "KvSmtpDriver.h"
#include "TempDir.h"
#include "driver/SmtpDoubles.h"
#include "system/ExpectedMail.h"

namespace {

using kvtest::Files;
using kvtest::FileShelf;
using kvtest::HostDoubles;
using kvtest::kDispatcherSource;
using kvtest::KvConn;
using kvtest::LinesFrom;
using kvtest::MailThrough;
using kvtest::NotesFrom;
using kvtest::Reply;
using kvtest::ReturnsOf;
using kvtest::ScriptedSmtpServer;
using kvtest::SimpleMessage;
using kvtest::Strings;
using kvtest::TempDir;
using kvtest::TestMessageFile;
using testing::MatchesRegex;
namespace step = kvtest::step;

/// A dispatcher that is handed its driver, connection and log by the test.
class HandedDispatcher : public KvSMTPMsgDispatcher {
public:
    using KvSMTPMsgDispatcher::m_pConn;
    using KvSMTPMsgDispatcher::m_pDriver;
    using KvSMTPMsgDispatcher::m_pLog;

    ~HandedDispatcher() override { m_pConn = nullptr; }
};

/// A dispatcher with a connection to a scripted server; everything logged before the dispatch is forgotten.
class KvSMTPMsgDispatcherTest : public testing::Test {
protected:
    KvSMTPMsgDispatcherTest() { m_host.lendTo(m_driver); }
    ~KvSMTPMsgDispatcherTest() override {
        if (m_conn.m_pConnection != nullptr) {
            m_driver.CloseConnection(m_conn);
        }
    }

    void Connect() {
        ASSERT_TRUE(m_driver.CreateConnection(m_conn, m_files.add(MailThrough(m_server))));
        m_dispatcher.m_pDriver = &m_driver;
        m_dispatcher.m_pConn = &m_conn;
        m_dispatcher.m_pLog = &m_host.log;
        m_host.log.clear();
    }
    TestMessageFile* File(const std::string& id, const std::string& recipient) {
        return m_files.add(MailThrough(m_server).id(id).jobId("job-" + id).recipient(recipient));
    }
    /// Files 1, 2 and 3 for A, B and C.
    Files GroupOfThree() {
        return {File("m_1", "a@example.org"), File("m_2", "b@example.org"), File("m_3", "c@example.org")};
    }
    Strings Notes() { return NotesFrom(m_host.log, kDispatcherSource); }
    Strings Lines() { return LinesFrom(m_host.log, kDispatcherSource); }

    ScriptedSmtpServer m_server;
    HostDoubles m_host;
    FileShelf m_files;
    KvSMTPDriver m_driver;
    KvConn m_conn;
    HandedDispatcher m_dispatcher;
};

// One message

TEST_F(KvSMTPMsgDispatcherTest, OneMessageIsOneTransactionAndComesBackCompleted) {
    Connect();
    EXPECT_TRUE(m_dispatcher.SendMessage(File("m_1", "bob@example.org")));
    EXPECT_EQ(m_server.connection().clientBytes(),
              "EHLO [127.0.0.1]\r\n"
              "MAIL FROM: <ann@example.org>\r\n"
              "RCPT TO: <bob@example.org>\r\n"
              "DATA\r\n" +
                  SimpleMessage + ".\r\n");
    EXPECT_EQ(ReturnsOf(m_host.queue), Strings{"m_1:3"});
    EXPECT_EQ(Lines(), (Strings{"trace: Entering KvSMTPMsgDispatcher::SendMessage",
                                "info: Creating REPORT entry COMPLETED for job: job-m_1.",
                                "trace: Leaving KvSMTPDriver::SendMessage with return value = 'true'"}));
}

TEST_F(KvSMTPMsgDispatcherTest, ACompletedFileComesBackWithoutFlagReasonOrText) {
    Connect();
    TestMessageFile* const file = File("m_1", "bob@example.org");
    file->m_bDriverFlag = true;
    file->m_bForDeletion = true;
    m_dispatcher.SendMessage(file);
    EXPECT_EQ(file->failureReasons(), Strings{});
    EXPECT_EQ(file->statusTexts(), Strings{""});
    EXPECT_FALSE(file->m_bDriverFlag);
    EXPECT_FALSE(file->m_bForDeletion);
    EXPECT_NE(file->m_tStatusTime, 0);
}

TEST_F(KvSMTPMsgDispatcherTest, NoReportIsWrittenBesidesThePushBack) {
    Connect();
    m_dispatcher.SendMessage(File("m_1", "bob@example.org"));
    EXPECT_EQ(m_host.reports.count(), 0);
}

TEST_F(KvSMTPMsgDispatcherTest, SenderSubjectTextAndAttachmentsAreTheFiles) {
    Connect();
    const TempDir dir;
    m_dispatcher.SendMessage(m_files.add(MailThrough(m_server)
                                             .from("zoe@example.org")
                                             .subject("Alarm")
                                             .text("Door\nopen")
                                             .attachment(dir.write("a.txt", "A"))
                                             .attachment(dir.write("b.txt", "B"))));
    EXPECT_EQ(m_server.transactions().at(0).sender, "zoe@example.org");
    EXPECT_EQ(m_server.transactions().at(0).data,
              "Mime-Version: 1.0\r\n"
              "Subject: Alarm\r\n"
              "From: zoe@example.org\r\n"
              "Content-Type: multipart/mixed;\r\n"
              "\tboundary=\"MujheKaamBataoMaiKiaKaronMaiKisKoKhaon\"\r\n"
              "\r\n"
              "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon\r\n"
              "Content-Type: text/plain\r\n"
              "\r\n"
              "Door\r\nopen\r\n"
              "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon\r\n"
              "Content-Type: application/octet-stream; name=\"a.txt\"\r\n"
              "Content-Transfer-Encoding: Base64\r\n"
              "Content-Disposition: attachment; filename=\"a.txt\"\r\n"
              "\r\n"
              "QQ==\r\n"
              "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon\r\n"
              "Content-Type: application/octet-stream; name=\"b.txt\"\r\n"
              "Content-Transfer-Encoding: Base64\r\n"
              "Content-Disposition: attachment; filename=\"b.txt\"\r\n"
              "\r\n"
              "Qg==\r\n"
              "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon--\r\n");
}

TEST_F(KvSMTPMsgDispatcherTest, ARefusedRecipientFailsTheFileWithTheServersText) {
    m_server.on("RCPT").reply("550 5.1.1 no such user\r\n");
    Connect();
    TestMessageFile* const file = File("m_1", "bob@example.org");
    EXPECT_FALSE(m_dispatcher.SendMessage(file));
    EXPECT_EQ(file->failureReasons(), Strings{"5.1.1 no such user\r\n"});
    EXPECT_EQ(file->statusTexts(), Strings{""});
    EXPECT_EQ(ReturnsOf(m_host.queue), Strings{"m_1:2 5.1.1 no such user\r\n"});
    EXPECT_EQ(Lines(), (Strings{"trace: Entering KvSMTPMsgDispatcher::SendMessage",
                                "error: Error: 5.1.1 no such user\r\n",
                                "info: Creating REPORT entry FAILED for job: job-m_1 with FAILURE REASON: "
                                "'5.1.1 no such user\r\n'.",
                                "trace: Leaving KvSMTPDriver::SendMessage with return value = 'false'"}));
}

TEST_F(KvSMTPMsgDispatcherTest, AnEngineErrorIsTheReasonAsItStands) {
    m_server.on("MAIL").reply("530 5.7.0 Must issue a STARTTLS command first\r\n");
    m_driver.CreateConnection(m_conn, m_files.add(MailThrough(m_server).security(SMTP_SECURITY_ON_DEMAND)));
    m_dispatcher.m_pDriver = &m_driver;
    m_dispatcher.m_pConn = &m_conn;
    m_dispatcher.SendMessage(File("m_1", "bob@example.org"));
    EXPECT_EQ(ReturnsOf(m_host.queue), Strings{"m_1:2 STARTTLS Failed after Must Start TLS Response"});
}

TEST_F(KvSMTPMsgDispatcherTest, AConnectionLostDuringDataIsLoggedInFullAndItsMessageIsTheReason) {
    m_server.on("DATA").reply(Reply().thenClose());
    Connect();
    EXPECT_FALSE(m_dispatcher.SendMessage(File("m_1", "bob@example.org")));
    EXPECT_EQ(ReturnsOf(m_host.queue), Strings{"m_1:2 Socket is closed"});
    ASSERT_EQ(Notes().size(), 2u);
    EXPECT_THAT(Notes().at(0),
                MatchesRegex("error: Error: Exception raised! IO path\\[" + m_server.address() +
                             "\\] File\\[\\.\\./src/KvioSocket\\] Line\\[215\\] Msg\\[Socket is closed\\] "
                             "SysMsg\\[[A-Za-z ]*\\]"));
    EXPECT_EQ(Notes().at(1),
              "info: Creating REPORT entry FAILED for job: job-m_1 with FAILURE REASON: 'Socket "
              "is closed'.");
}

TEST_F(KvSMTPMsgDispatcherTest, AConnectionResetDuringDataNamesTheSystemsError) {
    m_server.on("DATA").reply(Reply().thenReset());
    Connect();
    EXPECT_FALSE(m_dispatcher.SendMessage(File("m_1", "bob@example.org")));
    EXPECT_EQ(ReturnsOf(m_host.queue), Strings{"m_1:2 Socket Read Error"});
    EXPECT_EQ(Notes().at(0), "error: Error: Exception raised! IO path[" + m_server.address() +
                                 "] File[../src/KvioSocket] Line[209] Msg[Socket Read Error] "
                                 "SysMsg[Connection reset by peer]");
}

TEST_F(KvSMTPMsgDispatcherTest, AnyOtherFailureIsAnUnknownErrorWithAnEmptyReason) {
    m_server.on("RCPT").reply("550");  // too short for a reply
    Connect();
    TestMessageFile* const file = File("m_1", "bob@example.org");
    EXPECT_FALSE(m_dispatcher.SendMessage(file));
    EXPECT_EQ(file->failureReasons(), Strings{""});
    EXPECT_EQ(ReturnsOf(m_host.queue), Strings{"m_1:2"});
    EXPECT_EQ(Notes(),
              (Strings{"error: Unknown error occurred",
                       "info: Creating REPORT entry FAILED for job: job-m_1 with FAILURE REASON: ''."}));
}

TEST_F(KvSMTPMsgDispatcherTest, AfterAFailureTheConnectionIsNeitherResetNorClosed) {
    m_server.on("RCPT").reply("550 5.1.1 no such user\r\n");
    Connect();
    m_dispatcher.SendMessage(File("m_1", "bob@example.org"));
    EXPECT_EQ(m_server.connection().clientBytes(),
              "EHLO [127.0.0.1]\r\nMAIL FROM: <ann@example.org>\r\nRCPT TO: <bob@example.org>\r\n");
    EXPECT_EQ(m_server.openConnections(), 1);
    EXPECT_EQ(m_dispatcher.m_pConn, &m_conn);
}

// A group

TEST_F(KvSMTPMsgDispatcherTest, AGroupOfThreeIsOneTransactionWithThreeRecipients) {
    Connect();
    EXPECT_TRUE(m_dispatcher.SendMessageGroup(GroupOfThree()));
    EXPECT_EQ(m_server.connection().clientBytes(),
              "EHLO [127.0.0.1]\r\n"
              "MAIL FROM: <ann@example.org>\r\n"
              "RCPT TO: <a@example.org>\r\n"
              "RCPT TO: <b@example.org>\r\n"
              "RCPT TO: <c@example.org>\r\n"
              "DATA\r\n" +
                  SimpleMessage + ".\r\n");
    EXPECT_EQ(ReturnsOf(m_host.queue), (Strings{"m_1:3", "m_2:3", "m_3:3"}));
    EXPECT_EQ(Lines(), (Strings{"trace: Entering KvSMTPMsgDispatcher::SendMessageGroup",
                                "info: Creating REPORT entry COMPLETED for job: job-m_1.",
                                "info: Creating REPORT entry COMPLETED for job: job-m_2.",
                                "info: Creating REPORT entry COMPLETED for job: job-m_3.",
                                "trace: Leaving KvSMTPDriver::SendMessageGroup with return value = 'true'"}));
}

TEST_F(KvSMTPMsgDispatcherTest, ARecipientNamedTwiceInAGroupIsOfferedTwice) {
    Connect();
    EXPECT_TRUE(m_dispatcher.SendMessageGroup({File("m_1", "a@example.org"), File("m_2", "a@example.org")}));
    EXPECT_EQ(m_server.transactions().at(0).recipientAddresses(),
              (Strings{"a@example.org", "a@example.org"}));
    EXPECT_EQ(ReturnsOf(m_host.queue), (Strings{"m_1:3", "m_2:3"}));
}

TEST_F(KvSMTPMsgDispatcherTest, AGroupIsSentWithTheFirstFilesSenderSubjectTextAndAttachments) {
    Connect();
    const TempDir dir;
    auto* const second = m_files.add(MailThrough(m_server)
                                         .id("m_2")
                                         .recipient("b@example.org")
                                         .from("zoe@example.org")
                                         .subject("Other")
                                         .text("Other")
                                         .attachment(dir.write("a.txt", "A")));
    EXPECT_TRUE(m_dispatcher.SendMessageGroup({File("m_1", "a@example.org"), second}));
    EXPECT_EQ(m_server.transactions().at(0).sender, "ann@example.org");
    EXPECT_EQ(m_server.transactions().at(0).data, SimpleMessage);
}

TEST_F(KvSMTPMsgDispatcherTest, OneRefusedRecipientFailsTheWholeGroupAndTheRestIsNotOffered) {
    m_server.on("RCPT").recipient("b@example.org").reply("550 5.1.1 no such user\r\n");
    Connect();
    EXPECT_FALSE(m_dispatcher.SendMessageGroup(GroupOfThree()));
    EXPECT_EQ(m_server.transactions().at(0).recipientAddresses(),
              (Strings{"a@example.org", "b@example.org"}));
    EXPECT_EQ(ReturnsOf(m_host.queue),
              (Strings{"m_1:2 5.1.1 no such user\r\n", "m_2:2 5.1.1 no such user\r\n",
                       "m_3:2 5.1.1 no such user\r\n"}));
    EXPECT_EQ(
        Lines(),
        (Strings{"trace: Entering KvSMTPMsgDispatcher::SendMessageGroup",
                 "error: Error: 5.1.1 no such user\r\n",
                 "info: Creating REPORT entry FAILED for job: job-m_1 with FAILURE REASON: '5.1.1 no such "
                 "user\r\n'.",
                 "info: Creating REPORT entry FAILED for job: job-m_2 with FAILURE REASON: '5.1.1 no such "
                 "user\r\n'.",
                 "info: Creating REPORT entry FAILED for job: job-m_3 with FAILURE REASON: '5.1.1 no such "
                 "user\r\n'.",
                 "trace: Leaving KvSMTPDriver::SendMessageGroup with return value = 'false'"}));
}

TEST_F(KvSMTPMsgDispatcherTest, ALostConnectionFailsTheWholeGroupWithItsMessage) {
    m_server.on(step::EndOfData).reply(Reply().thenClose());
    Connect();
    EXPECT_FALSE(m_dispatcher.SendMessageGroup(GroupOfThree()));
    EXPECT_EQ(ReturnsOf(m_host.queue),
              (Strings{"m_1:2 Socket is closed", "m_2:2 Socket is closed", "m_3:2 Socket is closed"}));
}

TEST_F(KvSMTPMsgDispatcherTest, AnEmptyGroupSendsNothingAndIsFalse) {
    Connect();
    EXPECT_FALSE(m_dispatcher.SendMessageGroup({}));
    EXPECT_EQ(m_server.connection().clientBytes(), "EHLO [127.0.0.1]\r\n");
    EXPECT_EQ(m_host.queue.count(), 0);
}

// Two-way messages

TEST_F(KvSMTPMsgDispatcherTest, ATwoWayMessageIsLeftUntouched) {
    Connect();
    TestMessageFile* const file = m_files.add(MailThrough(m_server).twoWay());
    EXPECT_FALSE(m_dispatcher.Send2WayMessage(file));
    EXPECT_FALSE(m_dispatcher.Query2WayResponse(file));
    EXPECT_EQ(m_server.connection().clientBytes(), "EHLO [127.0.0.1]\r\n");
    EXPECT_EQ(m_host.queue.count(), 0);
    EXPECT_EQ(m_host.reports.count(), 0);
    EXPECT_EQ(file->failureReasons(), Strings{});
    EXPECT_EQ(file->m_eStatus, KvMessengerReportsMngrInterface::REPORT_NONE);
}

TEST_F(KvSMTPMsgDispatcherTest, TheLeavingLinesBearTheDriversName) {
    Connect();
    TestMessageFile* const file = m_files.add(MailThrough(m_server).twoWay());
    m_dispatcher.Send2WayMessage(file);
    m_dispatcher.Query2WayResponse(file);
    EXPECT_EQ(Lines(),
              (Strings{"trace: Entering KvSMTPMsgDispatcher::Send2WayMessage",
                       "trace: Leaving KvSMTPDriver::Send2WayMessage with return value = 'false'",
                       "trace: Entering KvSMTPMsgDispatcher::Query2WayResponse",
                       "trace: Leaving KvSMTPDriver::Query2WayResponse with return value = 'false'"}));
}

// Without a log

TEST_F(KvSMTPMsgDispatcherTest, WithoutALogEverythingComesBackAllTheSame) {
    m_server.on("RCPT").recipient("eve@example.org").reply("550 5.1.1 no such user\r\n");
    Connect();
    m_dispatcher.m_pLog = nullptr;
    EXPECT_TRUE(m_dispatcher.SendMessage(File("m_1", "bob@example.org")));
    EXPECT_FALSE(m_dispatcher.SendMessage(File("m_2", "eve@example.org")));
    EXPECT_FALSE(m_dispatcher.Send2WayMessage(File("m_3", "bob@example.org")));
    EXPECT_EQ(ReturnsOf(m_host.queue), (Strings{"m_1:3", "m_2:2 5.1.1 no such user\r\n"}));
    EXPECT_EQ(Lines(), Strings{});
}

}  // namespace
