#include "KvOpenSslLibrary.h"

#include <openssl/crypto.h>
#include <openssl/ssl.h>

#include <cstdlib>
#include <mutex>

namespace {

void* Allocate(std::size_t size, const char*, int) {
    return std::malloc(size);
}
void* Reallocate(void* memory, std::size_t size, const char*, int) {
    return std::realloc(memory, size);
}
void Free(void* memory, const char*, int) {
    std::free(memory);
}

void Initialize() {
    CRYPTO_set_mem_functions(Allocate, Reallocate, Free);
    OPENSSL_init_ssl(OPENSSL_INIT_LOAD_SSL_STRINGS | OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr);
    OPENSSL_init_crypto(OPENSSL_INIT_ADD_ALL_CIPHERS | OPENSSL_INIT_ADD_ALL_DIGESTS, nullptr);
}

}  // namespace

void KvOpenSslLibrary::InitializeOnce() {
    static std::once_flag once;
    std::call_once(once, Initialize);
}
