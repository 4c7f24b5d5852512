#pragma once

#include <sys/select.h>

#include <algorithm>
#include <cstddef>
#include <vector>

/// A descriptor set for select that holds one descriptor of any number; FD_SET writes past the end of an
/// fd_set for a descriptor of 1024 or more. One thread at a time.
class KvDescriptorSet {
public:
    /// An empty set in which `descriptor` has its place. A negative one has none and is never a member.
    explicit KvDescriptorSet(int descriptor)
        : m_words(std::max(WordOf(descriptor) + 1, sizeof(fd_set) / sizeof(fd_mask))),
          m_word(WordOf(descriptor)),
          m_bit(descriptor < 0
                    ? 0
                    : static_cast<fd_mask>(1UL << (static_cast<std::size_t>(descriptor) % kBits))) {}

    /// Makes the descriptor the only member, or empties the set.
    void Set(bool member) {
        std::fill(m_words.begin(), m_words.end(), 0);
        m_words[m_word] = member ? m_bit : 0;
    }
    bool Contains() const { return (m_words[m_word] & m_bit) != 0; }

    fd_set* Get() { return reinterpret_cast<fd_set*>(m_words.data()); }

private:
    static constexpr std::size_t kBits = 8 * sizeof(fd_mask);

    static std::size_t WordOf(int descriptor) {
        return descriptor < 0 ? 0 : static_cast<std::size_t>(descriptor) / kBits;
    }

    std::vector<fd_mask> m_words;
    std::size_t m_word;
    fd_mask m_bit;
};
