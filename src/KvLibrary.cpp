#include "KvLibrary.h"

#include "KvconThread.h"
#include "KvioSocket.h"
#include "KvsystemResource.h"

pthread_once_t the_Once = PTHREAD_ONCE_INIT;

namespace {

constexpr const char* kResourceFile = "libresource.res";

bool EndsInSeparator(const std::string& directory) {
    return directory.back() == '/' || directory.back() == '\\';
}

std::string ResourcePath(const std::string& directory) {
    if (directory.empty()) {
        return std::string("./") + kResourceFile;
    }
    return directory + (EndsInSeparator(directory) ? "" : "/") + kResourceFile;
}

}  // namespace

bool InitialLib() {
    KvconThread::InitializeLibrary();
    return KvioSocket::InitialLibrary();
}

bool InitialLib(const std::string& resourceDir) {
    the_ResourceDir = resourceDir;
    if (pthread_once(&the_Once, RealInitial) != 0) {
        return false;
    }
    return InitialLib();
}

bool CloseLib() {
    KvconThread::CloseLibrary();
    return KvioSocket::CloseLibrary();
}

void RealInitial() {
    the_LibResource.Load(ResourcePath(the_ResourceDir));
}
