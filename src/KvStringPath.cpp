#include <cstdio>
#include <cstring>

#include "KvString.h"

const char* GetFileName(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

void KvstringCreatePath(char* out, char* dir, char* name) {
    const std::size_t length = std::strlen(dir);
    const bool endsInSlash = length > 0 && dir[length - 1] == '/';
    std::sprintf(out, endsInSlash ? "%s%s" : "%s/%s", dir, name);
}

std::string KvstringCreatePath(const std::string& dir, const std::string& name) {
    return dir.ends_with('/') ? dir + name : dir + "/" + name;
}

std::string GetLastSubDirFromPath(const std::string& path) {
    const std::size_t end = path.rfind('/');
    if (end == std::string::npos || end == 0) {
        return "";
    }
    const std::size_t slashBefore = path.rfind('/', end - 1);
    const std::size_t begin = slashBefore == std::string::npos ? 0 : slashBefore + 1;
    return path.substr(begin, end - begin);
}

std::string KvstringPathFilter(const std::string& path) {
    std::vector<std::string> components;
    KvstringSplitString(path, '/', components, true);
    std::erase_if(components, [](const std::string& name) { return name == "." || name == ".."; });
    return (path.starts_with('/') ? "/" : "") + KvstringJoin(components, "/");
}
