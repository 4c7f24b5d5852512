#include <algorithm>

#include "KvString.h"
#include "KvsysCodecParts.h"

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

void KvstringReplaceChar(char* text, char what, char with) {
    for (; *text != '\0'; ++text) {
        if (*text == what) {
            *text = with;
        }
    }
}

std::string KvstringReplaceChar(const std::string& text, char what, char with) {
    return KvstringReplaceCharAnyOf(text, std::string(1, what), with);
}

std::string KvstringReplaceCharAnyOf(const std::string& text, const std::string& chars, char with) {
    std::string result = text;
    const auto isReplaced = [&chars](char c) { return chars.find(c) != std::string::npos; };
    std::replace_if(result.begin(), result.end(), isReplaced, with);
    return result;
}

std::string KvstringReplaceStr(const std::string& text, const std::string& what, const std::string& with) {
    return what.empty() ? text : KvsysReplaceEach(text, what, with);
}

std::string KvstringReplaceColon(const std::string& text, char with) {
    return KvstringReplaceChar(text, ':', with);
}
