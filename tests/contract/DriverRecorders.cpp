#include "contract/DriverRecorders.h"

#include "KvSMTPMsgDispatcher.h"
#include "KvSmtpDriver.h"
#include "contract/Calls.h"

namespace kvcontract {

namespace {

using ReportsStatus = KvMessengerReportsMngrInterface::ReportsStatus;

template <typename Base>
class InterfaceRecorder : public Base {
public:
    const char* GetName() override { return "name"; }
    const char* GetVersion() override { return "version"; }
    const char* GetProtocolName() override { return "protocol"; }
    const char* GetCarrierName() override { return "carrier"; }
    bool Configure(std::map<std::string, std::string>& settings) override {
        return Took("Configure", {AddressOf(settings)});
    }
    bool Setup(KvMessengerInstConfBasic* instConf) override { return Took("Setup", {Word(instConf)}); }
    bool PeriodicEvent() override { return Took("PeriodicEvent", {}); }
    bool ResetDevice() override { return Took("ResetDevice", {}); }
    bool Send2WayRespQuery(KvMessageFile* file, ReportsStatus& status) override {
        return Took("Send2WayRespQuery", {Word(file), AddressOf(status)});
    }
    bool SendAMessage(KvMessageFile* file, ReportsStatus& status) override {
        return Took("SendAMessage", {Word(file), AddressOf(status)});
    }
    bool Cleanup() override { return Took("Cleanup", {}); }
    bool ProcessSignal() override { return Took("ProcessSignal", {}); }

protected:
    static bool Took(const char* operation, const std::vector<std::uintptr_t>& arguments) {
        Note(operation, arguments);
        return true;
    }
};

template <typename Base>
class AsynRecorder : public InterfaceRecorder<Base> {
public:
    using typename Base::KvCarrierSess;
    bool ConfigureExt(std::map<std::string, std::string>& settings) override {
        return this->Took("ConfigureExt", {AddressOf(settings)});
    }
    bool SetupExt(KvMessengerInstConfBasic* instConf) override {
        return this->Took("SetupExt", {Word(instConf)});
    }
    bool CleanupExt() override { return this->Took("CleanupExt", {}); }
    std::string GetCacheKey(KvMessageFile* file) override {
        Note("GetCacheKey", {Word(file)});
        return "key";
    }
    bool StoreMsgFileInCarrierSession(KvCarrierSess& session, KvMessageFile* file) override {
        return this->Took("StoreMsgFileInCarrierSession", {AddressOf(session), Word(file)});
    }
    bool ProcessCarrierSession(KvCarrierSess& session, std::string& errText) override {
        return this->Took("ProcessCarrierSession", {AddressOf(session), AddressOf(errText)});
    }
};

template <typename Base>
class ConnectionRecorder : public AsynRecorder<Base> {
public:
    using typename Base::KvConn;
    bool TestConnection(KvConn& conn) override { return this->Took("TestConnection", {AddressOf(conn)}); }
    bool CreateConnection(KvConn& conn, const KvMessageFile* file) override {
        return this->Took("CreateConnection", {AddressOf(conn), Word(file)});
    }
    bool CloseConnection(KvConn& conn) override { return this->Took("CloseConnection", {AddressOf(conn)}); }
    KvSmartProtocolDriverDelegateIface* GetProtocolDriverDelegate() override {
        Note("GetProtocolDriverDelegate");
        return nullptr;
    }
};

template <typename Base>
class DelegateRecorder : public Base {
public:
    void* DoWork(void* userData) override {
        Note("DoWork", {Word(userData)});
        return userData;
    }
    void StopWork() override { Note("StopWork"); }
    void PauseWork() override { Note("PauseWork"); }
    void ResumeWork() override { Note("ResumeWork"); }
    bool InitializeSpecial() override { return Took("InitializeSpecial", {}); }
    bool FinalizeSpecial() override { return Took("FinalizeSpecial", {}); }
    bool SendMessageGroup(std::list<KvMessageFile*> batch) override {
        return Took("SendMessageGroup", {batch.size(), Word(batch.front())});
    }
    bool SendMessage(KvMessageFile* file) override { return Took("SendMessage", {Word(file)}); }
    bool Send2WayMessage(KvMessageFile* file) override { return Took("Send2WayMessage", {Word(file)}); }
    bool Query2WayResponse(KvMessageFile* file) override { return Took("Query2WayResponse", {Word(file)}); }
    bool ProcessMessageFileGroups() override { return Took("ProcessMessageFileGroups", {}); }

private:
    static bool Took(const char* operation, const std::vector<std::uintptr_t>& arguments) {
        Note(operation, arguments);
        return true;
    }
};

}  // namespace

KvProtocolDriverInterface* NewRecordingProtocolDriver() {
    return new Recording<InterfaceRecorder<KvProtocolDriverInterface>>();
}

KvProtocolDriverInterface* NewRecordingAsynDriver() {
    return new Recording<AsynRecorder<KvSmartAsynProtocolDriver>>();
}

KvProtocolDriverInterface* NewRecordingMultiThreadedDriver() {
    return new Recording<ConnectionRecorder<KvSmartAsynProtocolDriverMultiThreaded>>();
}

KvProtocolDriverInterface* NewRecordingSmtpDriver() {
    return new Recording<ConnectionRecorder<KvSMTPDriver>>();
}

void* NewRecordingDelegate() {
    return new Recording<DelegateRecorder<KvSmartProtocolDriverDelegateIface>>();
}

void* NewRecordingDispatcher() {
    return new Recording<DelegateRecorder<KvSMTPMsgDispatcher>>();
}

}  // namespace kvcontract
