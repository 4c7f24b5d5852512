#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

struct evp_md_ctx_st;

namespace kvhost {

/// SHA-256 (FIPS 180-4) of what is added piece by piece. One thread at a time.
class Sha256 {
public:
    /// Throws std::bad_alloc.
    Sha256();
    ~Sha256();
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    void Add(const void* data, std::size_t size);
    void Add(std::string_view text) { Add(text.data(), text.size()); }
    /// 64 lower-case hexadecimal digits. Nothing can be added afterwards.
    std::string HexDigest();

private:
    struct Free {
        void operator()(evp_md_ctx_st* context) const;
    };
    std::unique_ptr<evp_md_ctx_st, Free> m_context;
};

}  // namespace kvhost
