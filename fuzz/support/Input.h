#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// What a fuzz target is defined as.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace kvfuzz {

/// Cuts the bytes of one input into the pieces that a target needs. A piece ends at a byte of 0x1E (the ASCII record
/// separator) or with the input, so that inputs can be written and read with an editor. One thread at a time; refers to
/// the bytes.
class Input {
public:
    static constexpr char kSeparator = '\x1e';

    Input(const std::uint8_t* data, std::size_t size)
        : m_bytes(size == 0 ? "" : reinterpret_cast<const char*>(data), size) {}

    /// The next piece, without its separator; empty at the end.
    std::string Piece() {
        const std::size_t end = std::min(m_bytes.find(kSeparator), m_bytes.size());
        const std::string piece(m_bytes.substr(0, end));
        m_bytes.remove_prefix(std::min(end + 1, m_bytes.size()));
        return piece;
    }

    /// Everything that is left, separators included.
    std::string Rest() {
        const std::string rest(m_bytes);
        m_bytes = {};
        return rest;
    }

    bool IsEmpty() const { return m_bytes.empty(); }

private:
    std::string_view m_bytes;
};

}  // namespace kvfuzz
