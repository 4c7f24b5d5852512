// Runs one fuzz target over its corpus and over changed copies of it, without a fuzzer: the same ones in the same order
// every time, up to a number and for a second at most.
//
//     kvfuzz_TARGET CORPUS-FOLDER LAST-INPUT-FILE [SEED COUNT]
//
// With SEED and COUNT: over so many changed copies, others for every seed, however long it takes.
//
// The input that is under way always lies in the last-input file: it is what to look at when the program ends early.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "Input.h"

namespace {

constexpr std::size_t kMostBytes = 4096;
constexpr unsigned long kMostChanged = 5000;
constexpr std::chrono::seconds kMostTime(1);
constexpr unsigned long kSeed = 20260301;

[[noreturn]] void Fail(const std::string& text) {
    std::fprintf(stderr, "%s\n", text.c_str());
    std::exit(2);
}

/// A file that holds the input under way, whatever becomes of the program.
class LastInput {
public:
    explicit LastInput(const char* path) : m_fd(::open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
        if (m_fd < 0 || ::ftruncate(m_fd, kMostBytes) != 0) {
            Fail(std::string("cannot be written: ") + path);
        }
        void* const bytes = ::mmap(nullptr, kMostBytes, PROT_READ | PROT_WRITE, MAP_SHARED, m_fd, 0);
        if (bytes == MAP_FAILED) {
            Fail(std::string("cannot be mapped: ") + path);
        }
        m_bytes = static_cast<char*>(bytes);
    }
    ~LastInput() {
        ::munmap(m_bytes, kMostBytes);
        ::close(m_fd);
    }
    LastInput(const LastInput&) = delete;
    LastInput& operator=(const LastInput&) = delete;

    void Run(const std::string& input) {
        std::memset(m_bytes, 0, kMostBytes);
        std::memcpy(m_bytes, input.data(), std::min(input.size(), kMostBytes));
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
    }

private:
    const int m_fd;
    char* m_bytes = nullptr;
};

/// Changes inputs; the numbers are the generator's own, which are the same on every platform.
class Changer {
public:
    Changer(const std::vector<std::string>& corpus, unsigned long seed)
        : m_corpus(corpus), m_random(static_cast<std::mt19937::result_type>(seed)) {}

    std::string Next() {
        std::string input = m_corpus[Below(m_corpus.size())];
        for (std::size_t changes = 1 + Below(4); changes > 0; --changes) {
            Change(input);
        }
        input.resize(std::min(input.size(), kMostBytes));
        return input;
    }

private:
    std::size_t Below(std::size_t limit) { return limit == 0 ? 0 : m_random() % limit; }

    void Change(std::string& input) {
        const std::size_t at = Below(input.size() + 1);
        const std::size_t count = Below(std::min<std::size_t>(16, input.size() - at) + 1);
        switch (Below(6)) {
            case 0:
                input.insert(at, 1, AnyByte());
                break;
            case 1:
                input.erase(at, count);
                break;
            case 2:
                input.insert(at, input.substr(at, count));
                break;
            case 3:
                input.insert(at, PartOfAnother());
                break;
            default:
                std::fill_n(input.begin() + static_cast<std::ptrdiff_t>(at), std::min<std::size_t>(count, 1),
                            AnyByte());
                break;
        }
    }

    char AnyByte() {
        static constexpr char kLikely[] = "\0\r\n\t =%\\\"'*.-<>&[]{}0459\x1e\x7f\x80\xff";
        return Below(2) == 0 ? kLikely[Below(sizeof(kLikely))] : static_cast<char>(Below(256));
    }

    std::string PartOfAnother() {
        const std::string& other = m_corpus[Below(m_corpus.size())];
        return other.substr(Below(other.size() + 1), Below(33));
    }

    const std::vector<std::string>& m_corpus;
    std::mt19937 m_random;
};

std::vector<std::string> ReadCorpus(const char* folder) {
    std::vector<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    std::vector<std::string> corpus;
    for (const auto& path : paths) {
        std::ifstream stream(path, std::ios::binary);
        corpus.emplace_back(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    }
    return corpus;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3 && argc != 5) {
        Fail("usage: kvfuzz_TARGET CORPUS-FOLDER LAST-INPUT-FILE [SEED COUNT]");
    }
    const bool isLong = argc == 5;
    const unsigned long seed = isLong ? std::strtoul(argv[3], nullptr, 10) : kSeed;
    const unsigned long count = isLong ? std::strtoul(argv[4], nullptr, 10) : kMostChanged;
    const std::vector<std::string> corpus = ReadCorpus(argv[1]);
    if (corpus.empty()) {
        Fail(std::string("expected files in the corpus, found none: ") + argv[1]);
    }
    LastInput last(argv[2]);
    last.Run("");
    for (const std::string& input : corpus) {
        last.Run(input);
    }
    Changer changer(corpus, seed);
    const auto end = std::chrono::steady_clock::now() + kMostTime;
    unsigned long changed = 0;
    while (changed < count && (isLong || std::chrono::steady_clock::now() < end)) {
        last.Run(changer.Next());
        ++changed;
    }
    std::printf("%zu inputs of the corpus and %lu changed ones\n", corpus.size(), changed);
    return 0;
}
