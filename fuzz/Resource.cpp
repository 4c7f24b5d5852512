// The reader of resource files, against one that cuts the bytes by itself. The file is the input, in memory.
#include <cctype>
#include <cstdio>
#include <map>
#include <stdexcept>

#include "KvsystemResource.h"
#include "support/Check.h"
#include "support/Input.h"

namespace {

constexpr const char* kPath = "the input";
constexpr std::size_t kMostOfALine = 65533;
constexpr std::size_t kKeyLength = 10;

std::string* g_content = nullptr;
FILE* g_file = nullptr;

struct Expected {
    std::map<std::string, std::string> texts;
    bool isCut = false;  ///< an entry is too short, and the reading ends there
};

Expected Read(const std::string& content) {
    Expected expected;
    for (std::size_t at = 0; at < content.size();) {
        const std::size_t end = std::min(content.find('\n', at), content.size() - 1) + 1;
        const std::string line = content.substr(at, std::min(end - at, kMostOfALine));
        at += line.size();
        const std::string seen = line.c_str();
        if (seen.empty() || std::isspace(static_cast<unsigned char>(seen[0])) == 0) {
            continue;
        }
        if (seen.size() <= kKeyLength) {
            expected.isCut = true;
            break;
        }
        expected.texts.emplace(seen.substr(0, kKeyLength), seen.substr(kKeyLength + 1));
    }
    return expected;
}

/// Load throws at an entry that is too short, and leaves the file open.
bool LoadIsCut(KvsystemResource& resource) {
    try {
        KV_FUZZ_CHECK(resource.Load(kPath));
    } catch (const std::out_of_range&) {
        std::fclose(g_file);
        return true;
    }
    return false;
}

}  // namespace

extern "C" FILE* __real_fopen(const char* path, const char* mode);
extern "C" FILE* __wrap_fopen(const char* path, const char* mode) {
    if (g_content == nullptr || std::string(path) != kPath) {
        return __real_fopen(path, mode);
    }
    g_file = fmemopen(g_content->data(), g_content->size(), "r");
    return g_file;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string content = kvfuzz::Input(data, size).Rest();
    const Expected expected = Read(content);
    KvsystemResource resource;
    g_content = &content;
    KV_FUZZ_CHECK(LoadIsCut(resource) == expected.isCut);
    g_content = nullptr;
    for (const auto& [key, text] : expected.texts) {
        KV_FUZZ_CHECK(resource.GetString(key) == text);
    }
    KV_FUZZ_CHECK(resource.GetString("no such key") == "Unknown");
    KV_FUZZ_CHECK(resource.Unload());
    return 0;
}
