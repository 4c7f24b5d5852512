#include "contract/SystemRecorders.h"

#include "KvEmailDriver.h"
#include "KvconException.h"
#include "KvconThread.h"
#include "KvconThreadPool.h"
#include "KvioException.h"
#include "KvioSSLClientSocket.h"
#include "KvsystemResource.h"
#include "contract/Calls.h"

namespace kvcontract {

namespace {

class WorkRecorder : public KvconDelegate {
public:
    void* DoWork(void* userData) override {
        Note("DoWork", {Word(userData)});
        return userData;
    }
    void StopWork() override { Note("StopWork"); }
    void PauseWork() override { Note("PauseWork"); }
    void ResumeWork() override { Note("ResumeWork"); }
};

template <typename Base>
class SocketRecorder : public Base {
public:
    int Close() override {
        Note("Close");
        return 17;
    }
};

class TlsSocketRecorder : public SocketRecorder<KvioSSLClientSocket> {
public:
    void StartSSL() override { Note("StartSSL"); }
    int Read(unsigned char* buffer, unsigned int size, int timeoutMs, SocketStatus& status) override {
        Note("Read", {Word(buffer), size, Word(timeoutMs), AddressOf(status)});
        return 17;
    }
    int Write(const unsigned char* data, unsigned int size) override {
        Note("Write bytes", {Word(data), size});
        return 17;
    }
    int Write(const std::string& text) override {
        Note("Write text", {AddressOf(text)});
        return 17;
    }
    KvioSSLClientSocket& operator<<(std::string text) override {
        Note("<< " + text);
        return *this;
    }
    int operator>>(std::string& out) override {
        Note(">>", {AddressOf(out)});
        return 17;
    }
    void Reset() override { Note("Reset"); }
    const SSL_METHOD* GetSSLMethod(MethodType type) override {
        Note("GetSSLMethod", {Word(static_cast<int>(type))});
        return nullptr;
    }
};

template <typename Base>
class ExceptionRecorder : public Base {
public:
    using Base::Base;
    std::string ToString() override { return "as a text"; }
    std::string GetMsg() override { return "message"; }
    std::string GetFile() override { return "file"; }
    int GetLine() override { return 17; }
    std::string GetSysMsg() override { return "system message"; }
};

}  // namespace

void* NewRecordingObject() {
    return new Recording<Kvobject>();
}
void* NewRecordingLock() {
    return new Recording<KvconLock>();
}
void* NewRecordingEvent() {
    return new Recording<KvconEvent>();
}
void* NewRecordingThread() {
    return new Recording<KvconThread>();
}
void* NewRecordingThreadPool() {
    return new Recording<KvconThreadPool>();
}
void* NewRecordingResource() {
    return new Recording<KvsystemResource>();
}
void* NewRecordingEventHandler() {
    return new Recording<KvioSocketEventHandler>();
}
void* NewRecordingEngine() {
    return new Recording<KvEmailDriver>(nullptr, "", "", "");
}
void* NewRecordingSmtpException() {
    return new Recording<KvSmtpException>(550, "no");
}
void* NewRecordingWork() {
    return new Recording<WorkRecorder>();
}
void* NewRecordingSocket() {
    return new Recording<SocketRecorder<KvioSocket>>();
}
void* NewRecordingClientSocket() {
    return new Recording<SocketRecorder<KvioClientSocket>>();
}
void* NewRecordingTlsSocket() {
    return new Recording<TlsSocketRecorder>();
}
void* NewRecordingIoException() {
    return new Recording<ExceptionRecorder<KvioException>>("path", "message");
}
void* NewRecordingThreadException() {
    return new Recording<ExceptionRecorder<KvconException>>(1UL, "message");
}

}  // namespace kvcontract
