#include <algorithm>

#include "KvString.h"
#include "KvsysCodecParts.h"

void findandreplace(std::string& text, const std::string& what, const std::string& with) {
    // `done` never holds `what`, so the leftmost occurrence is the first that it ends with. A replacement is looked at
    // again, with its neighbours: it goes onto `pending`, the next character last. Of `text` only the characters that
    // can end an occurrence are looked at.
    std::string done;
    done.reserve(text.size());
    std::string pending;
    for (std::size_t next = 0; next < text.size() || !pending.empty();) {
        if (!pending.empty()) {
            done += pending.back();
            pending.pop_back();
        } else {
            const std::size_t end = std::min(text.find(what.back(), next), text.size() - 1) + 1;
            done.append(text, next, end - next);
            next = end;
        }
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
