#include "KvException.h"

#include <cerrno>
#include <cstring>

#include "KvDescribe.h"

KvException::KvException(const char* sourceFile, int sourceLine, const std::string& message,
                         const std::string& systemMessage)
    : msg(message), file(sourceFile), line(sourceLine), sysmsg(systemMessage) {}

std::string KvException::ToString() {
    return KvDescribe("Exception raised! File[%s] Line[%d] Msg[%s] SysMsg[%s]", file.c_str(), line,
                      msg.c_str(), sysmsg.c_str());
}

std::string KvException::GetMsg() {
    return msg;
}

std::string KvException::GetFile() {
    return file;
}

int KvException::GetLine() {
    return line;
}

std::string KvException::GetSysMsg() {
    return sysmsg;
}

std::string KvgetLastError() {
    char buffer[1024] = {};
    return strerror_r(errno, buffer, sizeof(buffer) - 1);
}
