#include "MailHeader.h"

#include <algorithm>
#include <utility>

#include "MailCharset.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

std::string_view Trimmed(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && IsBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

/// Takes the first line off `text`, without its end.
std::string_view TakeLine(std::string_view& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    return line;
}

bool IsFieldName(std::string_view name) {
    return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c < 0x7F; });
}

MailHeader::Field ReadField(std::string_view line, unsigned long number) {
    const std::size_t colon = line.find(':');
    const std::string_view name = Trimmed(line.substr(0, std::min(colon, line.size())));
    if (colon == std::string_view::npos || IsBlank(line.front()) || !IsFieldName(name)) {
        throw MailFault("", "expected a header field, \"Name: value\", on line " + std::to_string(number) +
                                " of the header, found \"" + MakeVisible(line.substr(0, 60)) + "\"");
    }
    return {LowerCase(name), std::string(Trimmed(line.substr(colon + 1)))};
}

/// Reads "; name=value" after "; name=value" (RFC 2045 5.1).
class ParameterScanner {
public:
    ParameterScanner(std::string field, std::string_view text) : m_strField(std::move(field)), m_text(text) {}

    std::string Value() { return LowerCase(Word()); }

    bool NextParameter(std::string& name, std::string& value) {
        SkipBlanks();
        while (!m_text.empty() && m_text.front() == ';') {
            m_text.remove_prefix(1);
            SkipBlanks();
        }
        if (m_text.empty()) {
            return false;
        }
        name = LowerCase(Word());
        SkipBlanks();
        if (name.empty() || m_text.empty() || m_text.front() != '=') {
            throw MailFault(m_strField, "expected parameters, \"; name=value\", found \"" +
                                            MakeVisible(m_text.substr(0, 60)) + "\"");
        }
        m_text.remove_prefix(1);
        SkipBlanks();
        value = !m_text.empty() && m_text.front() == '"' ? Quoted() : Word();
        return true;
    }

private:
    void SkipBlanks() {
        while (!m_text.empty() && (IsBlank(m_text.front()) || m_text.front() == '(')) {
            if (m_text.front() == '(') {
                SkipComment();
            } else {
                m_text.remove_prefix(1);
            }
        }
    }

    void SkipComment() {
        const std::size_t end = m_text.find(')');
        if (end == std::string_view::npos) {
            throw MailFault(m_strField, "expected \")\" at the end of a comment");
        }
        m_text.remove_prefix(end + 1);
    }

    std::string Word() {
        SkipBlanks();
        const std::size_t end = std::min(m_text.find_first_of(" \t;=(\""), m_text.size());
        const std::string word(m_text.substr(0, end));
        m_text.remove_prefix(end);
        return word;
    }

    std::string Quoted() {
        std::string value;
        for (std::size_t i = 1; i < m_text.size(); ++i) {
            if (m_text[i] == '"') {
                m_text.remove_prefix(i + 1);
                return value;
            }
            if (m_text[i] == '\\' && i + 1 < m_text.size()) {
                ++i;
            }
            value += m_text[i];
        }
        throw MailFault(m_strField, "expected a quote at the end of a parameter's value");
    }

    const std::string m_strField;
    std::string_view m_text;
};

/// One piece of a value that is given in several (RFC 2231 3).
struct Piece {
    std::string text;
    bool isEncoded = false;
};

using Pieces = std::map<unsigned long, Piece>;

/// Takes the number and the mark of an encoded value off a name such as "filename*1*".
unsigned long TakeNumber(std::string& name, bool& isEncoded) {
    isEncoded = !name.empty() && name.back() == '*';
    if (isEncoded) {
        name.pop_back();
    }
    const std::size_t star = name.find('*');
    if (star == std::string::npos || star + 1 == name.size() || name.size() - star > 5 ||
        name.find_first_not_of("0123456789", star + 1) != std::string::npos) {
        return 0;
    }
    const unsigned long number = std::stoul(name.substr(star + 1));
    name.erase(star);
    return number;
}

std::string PercentDecoded(const std::string& text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isEscape = text[i] == '%' && text.size() - i > 2 &&
                              text.find_first_not_of("0123456789abcdefABCDEF", i + 1) > i + 2;
        if (isEscape) {
            decoded += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

/// Takes "charset'language'" off the first piece.
std::string TakeCharset(std::string& text) {
    const std::size_t first = text.find('\'');
    const std::size_t second = first == std::string::npos ? first : text.find('\'', first + 1);
    if (second == std::string::npos) {
        return "us-ascii";
    }
    const std::string charset = text.substr(0, first);
    text.erase(0, second + 1);
    return charset.empty() ? "us-ascii" : charset;
}

std::string Joined(const std::string& field, Pieces pieces) {
    const bool isEncoded = pieces.begin()->second.isEncoded;
    const std::string charset = isEncoded ? TakeCharset(pieces.begin()->second.text) : "utf-8";
    std::string bytes;
    for (const auto& [number, piece] : pieces) {
        bytes += piece.isEncoded ? PercentDecoded(piece.text) : piece.text;
    }
    if (!isEncoded) {
        return DecodeEncodedWords(field, bytes);
    }
    const auto text = ToUtf8(bytes, charset);
    if (!text) {
        throw MailFault(field, WhyNotUtf8(charset));
    }
    return *text;
}

}  // namespace

std::vector<std::string> MailHeader::All(std::string_view name) const {
    std::vector<std::string> values;
    for (const Field& field : fields) {
        if (field.name == name) {
            values.push_back(field.value);
        }
    }
    return values;
}

std::optional<std::string> MailHeader::Only(std::string_view name) const {
    const std::vector<std::string> values = All(name);
    if (values.size() > 1) {
        throw MailFault(std::string(name), "expected the header field once, found it " +
                                               std::to_string(values.size()) + " times");
    }
    return values.empty() ? std::nullopt : std::optional(values.front());
}

MailEntity ReadEntity(std::string_view text) {
    MailEntity entity;
    unsigned long number = 0;
    while (!text.empty()) {
        const std::string_view line = TakeLine(text);
        ++number;
        if (line.empty()) {
            break;
        }
        if (line.find('\0') != std::string_view::npos) {
            throw MailFault("", "expected a header without NUL, found one on line " + std::to_string(number));
        }
        if (IsBlank(line.front()) && !entity.header.fields.empty()) {
            const std::string_view more = Trimmed(line);
            entity.header.fields.back().value.append(more.empty() ? "" : " ").append(more);
        } else if (number != 1 || line.substr(0, 5) != "From ") {
            entity.header.fields.push_back(ReadField(line, number));
        }
    }
    entity.body = text;
    return entity;
}

MailValue ReadMailValue(const std::string& field, const std::string& text) {
    ParameterScanner scanner(field, text);
    MailValue result;
    result.value = scanner.Value();
    std::map<std::string, Pieces> parameters;
    std::string name;
    std::string value;
    while (scanner.NextParameter(name, value)) {
        bool isEncoded = false;
        const unsigned long number = TakeNumber(name, isEncoded);
        parameters[name][number] = {value, isEncoded};
    }
    for (const auto& [key, pieces] : parameters) {
        result.parameters[key] = Joined(field, pieces);
    }
    return result;
}

std::string LowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return lower;
}

}  // namespace kvhost
