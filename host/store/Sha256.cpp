#include "Sha256.h"

#include <openssl/evp.h>

#include <array>
#include <new>

namespace kvhost {

void Sha256::Free::operator()(evp_md_ctx_st* context) const {
    EVP_MD_CTX_free(context);
}

Sha256::Sha256() : m_context(EVP_MD_CTX_new()) {
    if (!m_context || EVP_DigestInit_ex(m_context.get(), EVP_sha256(), nullptr) != 1) {
        throw std::bad_alloc();
    }
}

Sha256::~Sha256() = default;

void Sha256::Add(const void* data, std::size_t size) {
    EVP_DigestUpdate(m_context.get(), data, size);
}

std::string Sha256::HexDigest() {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    EVP_DigestFinal_ex(m_context.get(), digest.data(), &size);
    constexpr const char* kDigits = "0123456789abcdef";
    std::string text;
    for (unsigned index = 0; index < size; ++index) {
        text += kDigits[digest[index] >> 4U];
        text += kDigits[digest[index] & 15U];
    }
    return text;
}

}  // namespace kvhost
