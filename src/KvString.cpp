#include "KvString.h"

#include <strings.h>
#include <cstring>

void findandreplace(std::string& text, const std::string& what, const std::string& with) {
    // `done` never holds `what`, so the leftmost occurrence is the first that it ends with. The characters to
    // come lie in `pending`, the next one last; a replacement goes there, to be looked at with its
    // neighbours.
    std::string done;
    std::string pending(text.rbegin(), text.rend());
    while (!pending.empty()) {
        done += pending.back();
        pending.pop_back();
        if (done.ends_with(what)) {
            done.resize(done.size() - what.size());
            pending.append(with.rbegin(), with.rend());
        }
    }
    text = std::move(done);
}

void KvstringTokenize(const std::string& text, const std::string& delimiters, std::vector<std::string>& out) {
    out.clear();
    std::string copy = text;
    char* rest = nullptr;
    for (char* token = strtok_r(copy.data(), delimiters.c_str(), &rest); token != nullptr;
         token = strtok_r(nullptr, delimiters.c_str(), &rest)) {
        out.emplace_back(token);
    }
}

void KvstringSplitString(const std::string& text, char separator, std::vector<std::string>& out,
                         bool skipEmpty) {
    out.clear();
    std::size_t begin = 0;
    for (std::size_t end = text.find(separator); end != std::string::npos;
         end = text.find(separator, begin)) {
        if (end != begin || !skipEmpty) {
            out.push_back(text.substr(begin, end - begin));
        }
        begin = end + 1;
    }
    if (begin < text.size()) {
        out.push_back(text.substr(begin));
    }
}

int KvFind(std::vector<std::string> list, const char* text) {
    for (std::size_t i = list.size(); i > 0; --i) {
        if (strcasecmp(list[i - 1].c_str(), text) == 0) {
            return static_cast<int>(i - 1);
        }
    }
    return -1;
}

unsigned int CountChracterBackwards(char c, std::string text, unsigned int pos) {
    if (pos >= text.size()) {
        return 0;
    }
    const std::size_t before = text.find_last_not_of(c, pos);
    return before == std::string::npos ? pos + 1 : pos - static_cast<unsigned int>(before);
}
