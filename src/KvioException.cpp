#include "KvioException.h"

#include "KvDescribe.h"

KvioException::KvioException(const std::string& ioPath, const char* sourceFile, int sourceLine,
                             const std::string& message, const std::string& systemMessage)
    : KvException(sourceFile, sourceLine, message, systemMessage), path(ioPath) {}

KvioException::KvioException(const std::string& ioPath, const char* sourceFile, int sourceLine,
                             const std::string& message)
    : KvioException(ioPath, sourceFile, sourceLine, message, "") {}

KvioException::KvioException(const std::string& ioPath, const std::string& message)
    : KvioException(ioPath, "", 0, message, "") {}

std::string KvioException::ToString() {
    return KvDescribe("Exception raised! IO path[%s] File[%s] Line[%d] Msg[%s] SysMsg[%s]", path.c_str(),
                      file.c_str(), line, msg.c_str(), sysmsg.c_str());
}
