#include <gtest/gtest.h>

#include <list>
#include <map>
#include <string>
#include <vector>

#include "KvSmartProtocolDriverDelegateIface.h"
#include "contract/Abi.h"
#include "contract/Calls.h"
#include "contract/DriverRecorders.h"

// The operations that the framework adds behind those of the interface, for the authors of drivers.

namespace kvcontract {

using Asyn = KvSmartAsynProtocolDriver;
using MultiThreaded = KvSmartAsynProtocolDriverMultiThreaded;
using Calls = std::vector<Call>;
using Settings = std::map<std::string, std::string>;
using Files = std::list<KvMessageFile*>;

struct Maker {
    const char* name;
    void* (*make)();
};

/// An object that is ended through its virtual table.
class SlotsTest : public testing::TestWithParam<Maker> {
protected:
    void TearDown() override {
        CallSlot<void>(m_object, 1);
        TakeCalls();
    }

    void* const m_object = GetParam().make();
    int m_file = 0;
    KvMessageFile* const m_pFile = reinterpret_cast<KvMessageFile*>(&m_file);
};

class AsynDriverSlotsTest : public SlotsTest {};

TEST_P(AsynDriverSlotsTest, Slots14To16AreTheExtensionsOfTheLifecycle) {
    Settings settings;
    KvMessengerInstConfBasic instance;
    EXPECT_TRUE((CallSlot<bool, Settings&>(m_object, 14, settings)));
    EXPECT_TRUE((CallSlot<bool, KvMessengerInstConfBasic*>(m_object, 15, &instance)));
    EXPECT_TRUE(CallSlot<bool>(m_object, 16));
    EXPECT_EQ(TakeCalls(), (Calls{{"ConfigureExt", {AddressOf(settings)}},
                                  {"SetupExt", {AddressOf(instance)}},
                                  {"CleanupExt", {}}}));
}

TEST_P(AsynDriverSlotsTest, Slots17To19AreTheSessionOperations) {
    Asyn::KvCarrierSess session;
    std::string errText;
    EXPECT_EQ((CallSlot<std::string, KvMessageFile*>(m_object, 17, m_pFile)), "key");
    EXPECT_TRUE((CallSlot<bool, Asyn::KvCarrierSess&, KvMessageFile*>(m_object, 18, session, m_pFile)));
    EXPECT_TRUE((CallSlot<bool, Asyn::KvCarrierSess&, std::string&>(m_object, 19, session, errText)));
    EXPECT_EQ(TakeCalls(), (Calls{{"GetCacheKey", {Word(m_pFile)}},
                                  {"StoreMsgFileInCarrierSession", {AddressOf(session), Word(m_pFile)}},
                                  {"ProcessCarrierSession", {AddressOf(session), AddressOf(errText)}}}));
}

class ConnectionSlotsTest : public SlotsTest {};

TEST_P(ConnectionSlotsTest, Slots20To23AreTheConnectionsAndTheDelegate) {
    MultiThreaded::KvConn conn;
    EXPECT_TRUE((CallSlot<bool, MultiThreaded::KvConn&>(m_object, 20, conn)));
    EXPECT_TRUE((CallSlot<bool, MultiThreaded::KvConn&, const KvMessageFile*>(m_object, 21, conn, m_pFile)));
    EXPECT_TRUE((CallSlot<bool, MultiThreaded::KvConn&>(m_object, 22, conn)));
    EXPECT_EQ(CallSlot<KvSmartProtocolDriverDelegateIface*>(m_object, 23), nullptr);
    EXPECT_EQ(TakeCalls(), (Calls{{"TestConnection", {AddressOf(conn)}},
                                  {"CreateConnection", {AddressOf(conn), Word(m_pFile)}},
                                  {"CloseConnection", {AddressOf(conn)}},
                                  {"GetProtocolDriverDelegate", {}}}));
}

class DelegateSlotsTest : public SlotsTest {};

TEST_P(DelegateSlotsTest, Slots2To5AreTheWorkAndItsControl) {
    EXPECT_EQ((CallSlot<void*, void*>(m_object, 2, &m_file)), &m_file);
    CallSlot<void>(m_object, 3);
    CallSlot<void>(m_object, 4);
    CallSlot<void>(m_object, 5);
    EXPECT_EQ(
        TakeCalls(),
        (Calls{{"DoWork", {AddressOf(m_file)}}, {"StopWork", {}}, {"PauseWork", {}}, {"ResumeWork", {}}}));
}

TEST_P(DelegateSlotsTest, Slots6And7AreTheSpecialStartAndEnd) {
    EXPECT_TRUE(CallSlot<bool>(m_object, 6));
    EXPECT_TRUE(CallSlot<bool>(m_object, 7));
    EXPECT_EQ(TakeCalls(), (Calls{{"InitializeSpecial", {}}, {"FinalizeSpecial", {}}}));
}

TEST_P(DelegateSlotsTest, Slots8To11AreWhatADispatcherSupplies) {
    EXPECT_TRUE((CallSlot<bool, Files>(m_object, 8, Files{m_pFile})));
    EXPECT_TRUE((CallSlot<bool, KvMessageFile*>(m_object, 9, m_pFile)));
    EXPECT_TRUE((CallSlot<bool, KvMessageFile*>(m_object, 10, m_pFile)));
    EXPECT_TRUE((CallSlot<bool, KvMessageFile*>(m_object, 11, m_pFile)));
    EXPECT_EQ(TakeCalls(), (Calls{{"SendMessageGroup", {1, Word(m_pFile)}},
                                  {"SendMessage", {Word(m_pFile)}},
                                  {"Send2WayMessage", {Word(m_pFile)}},
                                  {"Query2WayResponse", {Word(m_pFile)}}}));
}

TEST_P(DelegateSlotsTest, Slot12IsTheWalkAndTheNextBelongsToDerivedClasses) {
    EXPECT_TRUE(CallSlot<bool>(m_object, 12));
    CallSlot<void>(m_object, 13);
    EXPECT_EQ(TakeCalls(), (Calls{{"ProcessMessageFileGroups", {}}, {"OperationOfADerivedClass", {}}}));
}

TEST_P(DelegateSlotsTest, Slot0DestroysAndSlot1FreesToo) {
    void* const other = GetParam().make();
    CallSlot<void>(other, 0);
    EXPECT_EQ(TakeCalls(), (Calls{{"destroyed", {}}}));
    Free(other);
    CallSlot<void>(GetParam().make(), 1);
    EXPECT_EQ(TakeCalls(), (Calls{{"destroyed", {}}, {"freed", {}}}));
}

const auto kNameOf = [](const auto& maker) { return std::string(maker.param.name); };
const Maker kAsyn{"Asyn", [] { return static_cast<void*>(NewRecordingAsynDriver()); }};
const Maker kMultiThreaded{"MultiThreaded",
                           [] { return static_cast<void*>(NewRecordingMultiThreadedDriver()); }};
const Maker kSmtp{"Smtp", [] { return static_cast<void*>(NewRecordingSmtpDriver()); }};

INSTANTIATE_TEST_SUITE_P(Drivers, AsynDriverSlotsTest, testing::Values(kAsyn, kMultiThreaded, kSmtp),
                         kNameOf);
INSTANTIATE_TEST_SUITE_P(Drivers, ConnectionSlotsTest, testing::Values(kMultiThreaded, kSmtp), kNameOf);
INSTANTIATE_TEST_SUITE_P(Delegates, DelegateSlotsTest,
                         testing::Values(Maker{"Delegate", NewRecordingDelegate},
                                         Maker{"Dispatcher", NewRecordingDispatcher}),
                         kNameOf);

}  // namespace kvcontract
