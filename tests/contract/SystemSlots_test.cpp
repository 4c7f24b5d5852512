#include <gtest/gtest.h>

#include "KvioSSLClientSocket.h"
#include "contract/Abi.h"
#include "contract/Calls.h"
#include "contract/SystemRecorders.h"

// The virtual operations of the system library and of the SMTP engine, called by their slots.

namespace kvcontract {

using Calls = std::vector<Call>;

struct Class {
    const char* name;
    void* (*make)();
    std::size_t slots;
};

std::string NameOf(const testing::TestParamInfo<Class>& info) {
    return info.param.name;
}

class EveryClassSlotsTest : public testing::TestWithParam<Class> {
protected:
    void TearDown() override { TakeCalls(); }
};

TEST_P(EveryClassSlotsTest, Slot0DestroysAndLeavesTheMemory) {
    void* const object = GetParam().make();
    CallSlot<void>(object, 0);
    EXPECT_EQ(TakeCalls(), (Calls{{"destroyed", {}}}));
    Free(object);
}

TEST_P(EveryClassSlotsTest, Slot1DestroysAndFrees) {
    CallSlot<void>(GetParam().make(), 1);
    EXPECT_EQ(TakeCalls(), (Calls{{"destroyed", {}}, {"freed", {}}}));
}

TEST_P(EveryClassSlotsTest, TheSlotBehindTheLastBelongsToDerivedClasses) {
    void* const object = GetParam().make();
    CallSlot<void>(object, GetParam().slots);
    EXPECT_EQ(TakeCalls(), (Calls{{"OperationOfADerivedClass", {}}}));
    CallSlot<void>(object, 1);
}

INSTANTIATE_TEST_SUITE_P(
    System, EveryClassSlotsTest,
    testing::Values(Class{"Kvobject", NewRecordingObject, 2}, Class{"KvconLock", NewRecordingLock, 2},
                    Class{"KvconEvent", NewRecordingEvent, 2}, Class{"KvconThread", NewRecordingThread, 2},
                    Class{"KvconThreadPool", NewRecordingThreadPool, 2},
                    Class{"KvsystemResource", NewRecordingResource, 2},
                    Class{"KvioSocketEventHandler", NewRecordingEventHandler, 2},
                    Class{"KvEmailDriver", NewRecordingEngine, 2},
                    Class{"KvSmtpException", NewRecordingSmtpException, 2},
                    Class{"KvconDelegate", NewRecordingWork, 6}, Class{"KvioSocket", NewRecordingSocket, 3},
                    Class{"KvioClientSocket", NewRecordingClientSocket, 3},
                    Class{"KvioSSLClientSocket", NewRecordingTlsSocket, 11},
                    Class{"KvioException", NewRecordingIoException, 8},
                    Class{"KvconException", NewRecordingThreadException, 8}),
    NameOf);

/// An object that is ended through its virtual table.
class SystemSlotsTest : public testing::TestWithParam<Class> {
protected:
    void TearDown() override {
        CallSlot<void>(m_object, 1);
        TakeCalls();
    }

    void* const m_object = GetParam().make();
};

class DelegateContractTest : public SystemSlotsTest {};

TEST_P(DelegateContractTest, Slots2To5AreTheWorkAndItsControl) {
    int data = 0;
    EXPECT_EQ((CallSlot<void*, void*>(m_object, 2, &data)), &data);
    CallSlot<void>(m_object, 3);
    CallSlot<void>(m_object, 4);
    CallSlot<void>(m_object, 5);
    EXPECT_EQ(
        TakeCalls(),
        (Calls{{"DoWork", {AddressOf(data)}}, {"StopWork", {}}, {"PauseWork", {}}, {"ResumeWork", {}}}));
}

INSTANTIATE_TEST_SUITE_P(System, DelegateContractTest,
                         testing::Values(Class{"KvconDelegate", NewRecordingWork, 6}), NameOf);

class SocketContractTest : public SystemSlotsTest {};

TEST_P(SocketContractTest, Slot2IsClose) {
    EXPECT_EQ(CallSlot<int>(m_object, 2), 17);
    EXPECT_EQ(TakeCalls(), (Calls{{"Close", {}}}));
}

INSTANTIATE_TEST_SUITE_P(System, SocketContractTest,
                         testing::Values(Class{"KvioSocket", NewRecordingSocket, 3},
                                         Class{"KvioClientSocket", NewRecordingClientSocket, 3},
                                         Class{"KvioSSLClientSocket", NewRecordingTlsSocket, 11}),
                         NameOf);

class TlsSocketContractTest : public SystemSlotsTest {};

TEST_P(TlsSocketContractTest, Slots3To6AreTheHandshakeTheReadAndTheWrites) {
    unsigned char bytes[2] = {};
    auto status = KvioSocket::SOCKET_DONE;
    const std::string text;
    CallSlot<void>(m_object, 3);
    EXPECT_EQ((CallSlot<int, unsigned char*, unsigned int, int, KvioSocket::SocketStatus&>(m_object, 4, bytes,
                                                                                           2U, 250, status)),
              17);
    EXPECT_EQ((CallSlot<int, const unsigned char*, unsigned int>(m_object, 5, bytes, 2U)), 17);
    EXPECT_EQ((CallSlot<int, const std::string&>(m_object, 6, text)), 17);
    EXPECT_EQ(TakeCalls(), (Calls{{"StartSSL", {}},
                                  {"Read", {Word(bytes), 2, 250, AddressOf(status)}},
                                  {"Write bytes", {Word(bytes), 2}},
                                  {"Write text", {AddressOf(text)}}}));
}

TEST_P(TlsSocketContractTest, Slots7And8AreTheShiftOperators) {
    std::string out;
    EXPECT_EQ((&CallSlot<KvioSSLClientSocket&, std::string>(m_object, 7, "hello")), m_object);
    EXPECT_EQ((CallSlot<int, std::string&>(m_object, 8, out)), 17);
    EXPECT_EQ(TakeCalls(), (Calls{{"<< hello", {}}, {">>", {AddressOf(out)}}}));
}

TEST_P(TlsSocketContractTest, Slots9And10AreTheResetAndTheMethod) {
    CallSlot<void>(m_object, 9);
    EXPECT_EQ((CallSlot<const SSL_METHOD*, KvioSSLClientSocket::MethodType>(
                  m_object, 10, KvioSSLClientSocket::METHOD_SSLV23)),
              nullptr);
    EXPECT_EQ(TakeCalls(), (Calls{{"Reset", {}}, {"GetSSLMethod", {4}}}));
}

INSTANTIATE_TEST_SUITE_P(System, TlsSocketContractTest,
                         testing::Values(Class{"KvioSSLClientSocket", NewRecordingTlsSocket, 11}), NameOf);

class ExceptionContractTest : public SystemSlotsTest {};

TEST_P(ExceptionContractTest, Slot2IsTheTextOfTheStandardLibrary) {
    EXPECT_STREQ(CallSlot<const char*>(m_object, 2), "std::exception");
}

TEST_P(ExceptionContractTest, Slots3To7AreTheTextAndItsParts) {
    EXPECT_EQ(CallSlot<std::string>(m_object, 3), "as a text");
    EXPECT_EQ(CallSlot<std::string>(m_object, 4), "message");
    EXPECT_EQ(CallSlot<std::string>(m_object, 5), "file");
    EXPECT_EQ(CallSlot<int>(m_object, 6), 17);
    EXPECT_EQ(CallSlot<std::string>(m_object, 7), "system message");
}

INSTANTIATE_TEST_SUITE_P(System, ExceptionContractTest,
                         testing::Values(Class{"KvioException", NewRecordingIoException, 8},
                                         Class{"KvconException", NewRecordingThreadException, 8}),
                         NameOf);

}  // namespace kvcontract
