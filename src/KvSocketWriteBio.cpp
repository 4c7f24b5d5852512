#include "KvSocketWriteBio.h"

#include <sys/socket.h>

#include <mutex>

namespace {

int Write(BIO* bio, const char* data, int size) {
    int descriptor = -1;
    BIO_get_fd(bio, &descriptor);
    BIO_clear_retry_flags(bio);
    const int sent = static_cast<int>(send(descriptor, data, static_cast<std::size_t>(size), MSG_NOSIGNAL));
    if (sent <= 0 && BIO_sock_should_retry(sent) != 0) {
        BIO_set_retry_write(bio);
    }
    return sent;
}

BIO_METHOD* MakeMethod() {
    BIO_METHOD* const method = BIO_meth_new(BIO_TYPE_SOCKET, "KvSocketWriteBio");
    if (method != nullptr) {
        const BIO_METHOD* const plain = BIO_s_socket();
        BIO_meth_set_create(method, BIO_meth_get_create(plain));
        BIO_meth_set_destroy(method, BIO_meth_get_destroy(plain));
        BIO_meth_set_ctrl(method, BIO_meth_get_ctrl(plain));
        BIO_meth_set_write(method, Write);
    }
    return method;
}

/// Made once and never freed: connections may outlive every static object. One that could not be had, for want of
/// memory, is asked for again next time.
const BIO_METHOD* Method() {
    static std::mutex guard;
    static BIO_METHOD* method = nullptr;
    const std::lock_guard lock(guard);
    if (method == nullptr) {
        method = MakeMethod();
    }
    return method;
}

}  // namespace

BIO* KvSocketWriteBio::New(int descriptor) {
    const BIO_METHOD* const method = Method();
    BIO* const bio = method == nullptr ? nullptr : BIO_new(method);
    if (bio != nullptr) {
        BIO_set_fd(bio, descriptor, BIO_NOCLOSE);
    }
    return bio;
}
