#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>
#include <vector>

#include "KvLogInterface.h"
#include "KvMessageFile.h"
#include "KvMessageFileQueue.h"
#include "KvMessengerReportsMngrInterface.h"
#include "TestMessageFile.h"
#include "driver/FrameworkDoubles.h"

// A host is compiled against these types: the values, the slots and the order of the members are part of
// them.

namespace {

using kvtest::SlotOf;

TEST(KvLogInterfaceTest, TheSeveritiesLieInTheirSlots) {
    EXPECT_EQ(SlotOf(&KvLogInterface::LogTrace), 0U);
    EXPECT_EQ(SlotOf(&KvLogInterface::LogDebug), 1U);
    EXPECT_EQ(SlotOf(&KvLogInterface::LogInfo), 2U);
    EXPECT_EQ(SlotOf(&KvLogInterface::LogWarning), 3U);
    EXPECT_EQ(SlotOf(&KvLogInterface::LogError), 4U);
}

TEST(KvMessengerReportsMngrInterfaceTest, WriteReportIsTheFirstSlot) {
    EXPECT_EQ(SlotOf(&KvMessengerReportsMngrInterface::WriteReport), 0U);
}

TEST(KvMessengerReportsMngrInterfaceTest, TheStatusesHaveTheirFixedValuesInAnInt) {
    using Interface = KvMessengerReportsMngrInterface;
    EXPECT_EQ(Interface::REPORT_NONE, 0);
    EXPECT_EQ(Interface::REPORT_FAILED, 2);
    EXPECT_EQ(Interface::REPORT_COMPLETED, 3);
    EXPECT_EQ(Interface::REPORT_ACCEPTED, 7);
    EXPECT_EQ(sizeof(Interface::ReportsStatus), sizeof(int));
}

TEST(KvMessageFileTest, TheMembersLieInTheirOrder) {
    const kvtest::TestMessageFile object;
    const KvMessageFile& file = object;
    const std::vector<const void*> members{
        &file.m_strMsgFileID,    &file.m_strSubject,     &file.m_strMessage,     &file.m_strJobID,
        &file.m_strRecipient,    &file.m_strCarrierName, &file.m_strSmtpCAFile,  &file.m_strSmtpCertFile,
        &file.m_strSmtpKeyFile,  &file.m_nGroupInhibit1, &file.m_nGroupInhibit2, &file.m_vecAttachments,
        &file.m_ulCarrierID,     &file.m_bGroupInhibit,  &file.m_b2WayEnabled,   &file.m_bIs2WayQuery,
        &file.m_bIs2Way,         &file.m_eStatus,        &file.m_tStatusTime,    &file.m_bDriverFlag,
        &file.m_bForDeletion,    &file.m_strSmtpServer,  &file.m_strSmtpFrom,    &file.m_strSmtpUser,
        &file.m_strSmtpPassword, &file.m_eSmtpSecurity};
    for (std::size_t next = 1; next < members.size(); ++next) {
        EXPECT_LT(members[next - 1], members[next]) << "member " << next;
    }
    EXPECT_EQ(sizeof(file.m_eSmtpSecurity), sizeof(int));
}

TEST(KvMessageFileTest, TheFailureReasonComesBeforeTheStatusText) {
    EXPECT_LT(SlotOf(&KvMessageFile::SetFailureReason), SlotOf(&KvMessageFile::SetStatusText));
}

TEST(KvMessageFileQueueTest, TheDequeLiesBeforeItsLock) {
    const KvMessageFileQueue queue;
    EXPECT_EQ(static_cast<const void*>(&queue), static_cast<const void*>(&queue.m_dqMsgFiles));
    EXPECT_LT(static_cast<const void*>(&queue.m_dqMsgFiles), static_cast<const void*>(&queue.m_lock));
    EXPECT_TRUE((std::is_same_v<decltype(queue.m_lock), KvconLock>));
}

}  // namespace
