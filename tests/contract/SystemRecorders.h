#pragma once

// Objects of the system library and the SMTP engine that note every virtual call. They are compiled apart from the tests
// that call them, and are owned by the caller, who ends them through a slot of the destructor.

namespace kvcontract {

void* NewRecordingObject();
void* NewRecordingLock();
void* NewRecordingEvent();
void* NewRecordingThread();
void* NewRecordingThreadPool();
void* NewRecordingResource();
void* NewRecordingEventHandler();
void* NewRecordingEngine();
void* NewRecordingSmtpException();

void* NewRecordingWork();
void* NewRecordingSocket();
void* NewRecordingClientSocket();
void* NewRecordingTlsSocket();
void* NewRecordingIoException();
void* NewRecordingThreadException();

}  // namespace kvcontract
