#pragma once

#include <sys/select.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

/// A descriptor set for select that holds one descriptor of any number; FD_SET writes past the end of an
/// fd_set for a descriptor of 1024 or more. One thread at a time. Needs memory for such a descriptor only: a wait
/// for an ordinary one cannot fail for want of it.
class KvDescriptorSet {
public:
    /// An empty set in which `descriptor` has its place. A negative one has none and is never a member.
    explicit KvDescriptorSet(int descriptor)
        : m_large(WordOf(descriptor) < kSmallWords ? 0 : WordOf(descriptor) + 1),
          m_word(WordOf(descriptor)),
          m_bit(descriptor < 0
                    ? 0
                    : static_cast<fd_mask>(1UL << (static_cast<std::size_t>(descriptor) % kBits))) {}

    /// Makes the descriptor the only member, or empties the set.
    void Set(bool member) {
        std::fill_n(Words(), WordCount(), 0);
        Words()[m_word] = member ? m_bit : 0;
    }
    bool Contains() { return (Words()[m_word] & m_bit) != 0; }

    fd_set* Get() { return reinterpret_cast<fd_set*>(Words()); }

private:
    static constexpr std::size_t kBits = 8 * sizeof(fd_mask);
    static constexpr std::size_t kSmallWords = sizeof(fd_set) / sizeof(fd_mask);

    static std::size_t WordOf(int descriptor) {
        return descriptor < 0 ? 0 : static_cast<std::size_t>(descriptor) / kBits;
    }

    fd_mask* Words() { return m_large.empty() ? m_small.data() : m_large.data(); }
    std::size_t WordCount() const { return m_large.empty() ? kSmallWords : m_large.size(); }

    std::array<fd_mask, kSmallWords> m_small{};
    std::vector<fd_mask> m_large;  ///< empty for a descriptor that has its place in m_small
    std::size_t m_word;
    fd_mask m_bit;
};
