#include "TlsFilter.h"

#include <array>
#include <new>

namespace kvsink {
namespace {

const std::size_t RECORD = std::size_t{16} * 1024;

BIO* newMemory() {
    BIO* const memory = BIO_new(BIO_s_mem());
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    BIO_set_mem_eof_return(memory, -1);  // an empty buffer is not the end
    return memory;
}

}  // namespace

TlsFilter::TlsFilter(const TlsContext& context) : m_ssl(context.newConnection()) {
    OpenSslPtr<BIO> fromPeer(newMemory());
    m_toPeer = newMemory();
    m_fromPeer = fromPeer.release();
    SSL_set_bio(m_ssl.get(), m_fromPeer, m_toPeer);
}

TlsFilter::Status TlsFilter::receive(std::string_view encrypted, std::string& plain) {
    BIO_write(m_fromPeer, encrypted.data(), static_cast<int>(encrypted.size()));
    return decrypt(plain);
}

TlsFilter::Status TlsFilter::decrypt(std::string& plain) {
    std::array<char, RECORD> buffer;
    for (;;) {
        ERR_clear_error();
        const int length = SSL_read(m_ssl.get(), buffer.data(), static_cast<int>(buffer.size()));
        if (length > 0) {
            plain.append(buffer.data(), static_cast<std::size_t>(length));
            continue;
        }
        switch (SSL_get_error(m_ssl.get(), length)) {
            case SSL_ERROR_WANT_READ:
            case SSL_ERROR_WANT_WRITE:
                return Status::open;
            case SSL_ERROR_ZERO_RETURN:
                return Status::closed;
            default:
                ERR_clear_error();
                return Status::failed;
        }
    }
}

void TlsFilter::send(std::string_view plain) {
    if (!plain.empty() && SSL_is_init_finished(m_ssl.get())) {
        ERR_clear_error();
        SSL_write(m_ssl.get(), plain.data(), static_cast<int>(plain.size()));
        ERR_clear_error();
    }
}

void TlsFilter::close() {
    if (SSL_is_init_finished(m_ssl.get())) {
        ERR_clear_error();
        SSL_shutdown(m_ssl.get());
        ERR_clear_error();
    }
}

void TlsFilter::takeOutput(std::string& encrypted) {
    const std::size_t pending = BIO_ctrl_pending(m_toPeer);
    if (pending > 0) {
        const std::size_t before = encrypted.size();
        encrypted.resize(before + pending);
        BIO_read(m_toPeer, encrypted.data() + before, static_cast<int>(pending));
    }
}

}  // namespace kvsink
