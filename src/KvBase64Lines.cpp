#include "KvBase64Lines.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace {

constexpr std::size_t kGroupBytes = 3;
constexpr std::size_t kGroupCharacters = 4;
constexpr std::size_t kLineCharacters = kBase64LineBytes / kGroupBytes * kGroupCharacters;

using Pair = std::array<char, 2>;

/// The two characters of each value of 12 bits.
constexpr std::array<Pair, 4096> MakePairs() {
    constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::array<Pair, 4096> pairs{};
    for (std::size_t value = 0; value < pairs.size(); ++value) {
        pairs[value] = {kAlphabet[value >> 6U], kAlphabet[value & 63U]};
    }
    return pairs;
}

constexpr std::array<Pair, 4096> kPairs = MakePairs();

char* PutGroup(std::uint32_t group, char* to) {
    std::memcpy(to, kPairs[group >> 12U].data(), 2);
    std::memcpy(to + 2, kPairs[group & 4095U].data(), 2);
    return to + kGroupCharacters;
}

char* PutWholeGroups(const unsigned char* from, std::size_t groups, char* to) {
    for (; groups > 0; --groups, from += kGroupBytes) {
        to = PutGroup(std::uint32_t{from[0]} << 16U | std::uint32_t{from[1]} << 8U | from[2], to);
    }
    return to;
}

/// The last group, of one or two bytes.
char* PutRest(const unsigned char* from, std::size_t count, char* to) {
    const std::uint32_t second = count > 1 ? from[1] : 0U;
    char* const end = PutGroup(std::uint32_t{from[0]} << 16U | second << 8U, to);
    std::memset(end - (kGroupBytes - count), '=', kGroupBytes - count);
    return end;
}

}  // namespace

std::size_t KvBase64LinesLength(std::size_t size, std::size_t lineEndLength) {
    const std::size_t groups = size / kGroupBytes + (size % kGroupBytes != 0 ? 1 : 0);
    return groups * kGroupCharacters + groups * kGroupCharacters / kLineCharacters * lineEndLength;
}

void KvAppendBase64Lines(std::string_view data, std::string_view lineEnd, std::string& out) {
    const std::size_t begin = out.size();
    out.resize(begin + KvBase64LinesLength(data.size(), lineEnd.size()));
    char* to = out.data() + begin;
    const auto* from = reinterpret_cast<const unsigned char*>(data.data());
    std::size_t left = data.size();
    for (; left >= kBase64LineBytes; left -= kBase64LineBytes, from += kBase64LineBytes) {
        to = PutWholeGroups(from, kBase64LineBytes / kGroupBytes, to);
        to += lineEnd.copy(to, lineEnd.size());
    }
    to = PutWholeGroups(from, left / kGroupBytes, to);
    if (const std::size_t rest = left % kGroupBytes; rest != 0) {
        to = PutRest(from + left - rest, rest, to);
        // A line of 56 or 55 bytes is full too once it is padded.
        if (left > kBase64LineBytes - kGroupBytes) {
            lineEnd.copy(to, lineEnd.size());
        }
    }
}
