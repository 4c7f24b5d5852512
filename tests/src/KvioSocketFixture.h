#pragma once

#include "KvioSocket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <future>
#include <sstream>

#include "Descriptors.h"
#include "KvconThread.h"
#include "LoopbackSocket.h"
#include "RecordingLog.h"
#include "src/SocketDoubles.h"

namespace kvsockettest {

using kvtest::Bytes;
using kvtest::IoFailureOf;
using kvtest::IsOpen;
using kvtest::LogEntry;
using kvtest::LoopbackListener;
using kvtest::ReceiveText;
using kvtest::RecordingLog;
using kvtest::ScopedDescriptor;
using kvtest::SendText;
using kvtest::StreamPair;
using testing::ElementsAre;
using testing::IsEmpty;

class TestSocket : public kvtest::Attachable<KvioSocket> {
public:
    /// The members' distances from the beginning of the object, in bytes.
    std::vector<std::ptrdiff_t> MemberOffsets() const {
        const auto offset = [this](const void* member) {
            return static_cast<const char*>(member) - reinterpret_cast<const char*>(this);
        };
        return {offset(&m_socket), offset(&m_pEventHandler), offset(&m_strRemoteAddress),
                offset(&m_tLastActive), offset(&m_pEventLog)};
    }
};

/// A socket with a peer, and a log that is not switched on yet.
class KvioSocketTest : public ::testing::Test {
protected:
    KvioSocketTest() {
        socket.Attach(pair.near.get());
        socket.SetAddress("mail.example:25");
    }

    std::string TextOf(int count) const { return std::string(buffer, static_cast<std::size_t>(count)); }

    StreamPair pair;
    TestSocket socket;
    RecordingLog log;
    KvioSocket::SocketStatus status{};
    char buffer[64] = {};
};

class CountedHandler : public KvioSocketEventHandler {
public:
    explicit CountedHandler(int& deleted) : m_deleted(deleted) {}
    ~CountedHandler() override { ++m_deleted; }

private:
    int& m_deleted;
};

MATCHER_P2(IsTraffic, text, line, "") {
    return arg.severity == kvtest::Severity::Trace && arg.text == text && arg.line == line &&
           arg.file == "../src/KvioSocket";
}

}  // namespace kvsockettest
