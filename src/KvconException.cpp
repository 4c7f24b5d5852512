#include "KvconException.h"

#include "KvDescribe.h"

KvconException::KvconException(unsigned long failedThreadID, const char* sourceFile, int sourceLine,
                               const std::string& message, const std::string& systemMessage)
    : KvException(sourceFile, sourceLine, message, systemMessage), threadID(failedThreadID) {}

KvconException::KvconException(unsigned long failedThreadID, const char* sourceFile, int sourceLine,
                               const std::string& message)
    : KvconException(failedThreadID, sourceFile, sourceLine, message, "") {}

KvconException::KvconException(unsigned long failedThreadID, const std::string& message)
    : KvconException(failedThreadID, "", 0, message, "") {}

std::string KvconException::ToString() {
    return KvDescribe("Exception raised! ThreadID[%d] File[%s] Line[%d] Msg[%s] SysMsg[%s]",
                      static_cast<int>(threadID), file.c_str(), line, msg.c_str(), sysmsg.c_str());
}
