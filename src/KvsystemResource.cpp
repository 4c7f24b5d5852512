#include "KvsystemResource.h"

#include <cctype>
#include <cstdio>
#include <stdexcept>
#include <vector>

KvsystemResource the_LibResource;
std::string the_ResourceDir;

namespace {

constexpr std::size_t kLineBufferSize = 65534;
constexpr std::size_t kKeyLength = 10;

bool IsEntry(const std::string& lineText) {
    return !lineText.empty() && std::isspace(static_cast<unsigned char>(lineText[0])) != 0;
}

}  // namespace

bool KvsystemResource::Load(const std::string& path) {
    FILE* file = std::fopen(path.c_str(), "re");
    if (file == nullptr) {
        return false;
    }
    std::vector<char> buffer(kLineBufferSize);
    while (std::fgets(buffer.data(), static_cast<int>(buffer.size()), file) != nullptr) {
        AddLine(buffer.data());
    }
    std::fclose(file);
    return true;
}

void KvsystemResource::AddLine(const std::string& lineText) {
    if (!IsEntry(lineText)) {
        return;
    }
    if (lineText.size() <= kKeyLength) {
        throw std::out_of_range("basic_string::substr");
    }
    m_mapTexts.emplace(lineText.substr(0, kKeyLength), lineText.substr(kKeyLength + 1));
}

std::string KvsystemResource::GetString(const std::string& key) {
    const auto found = m_mapTexts.find(key);
    return found == m_mapTexts.end() ? "Unknown" : found->second;
}

bool KvsystemResource::Unload() {
    m_mapTexts.clear();
    return true;
}
