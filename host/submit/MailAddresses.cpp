#include "MailAddresses.h"

#include <string_view>
#include <utility>

#include "MailHeader.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

/// Goes through a list of addresses character by character.
class AddressScanner {
public:
    AddressScanner(std::string field, std::string_view text) : m_strField(std::move(field)), m_text(text) {}

    std::vector<std::string> Read() {
        while (m_nAt < m_text.size()) {
            Step();
        }
        Finish();
        return std::move(m_vecAddresses);
    }

private:
    void Step() {
        const char c = m_text[m_nAt];
        if (c == '"') {
            m_strPlain += Enclosed('"', '"');
        } else if (c == '(') {
            Enclosed('(', ')');
        } else if (c == '<') {
            const std::string address = Enclosed('<', '>');
            m_strAngled = address.substr(1, address.size() - 2);
            m_bHasAngled = true;
        } else if (c == '[') {
            m_strPlain += Enclosed('[', ']');
        } else if (c == ',' || c == ';') {
            Finish();
            ++m_nAt;
        } else if (c == ':') {
            m_strPlain.clear();  // the name of a group
            ++m_nAt;
        } else {
            m_strPlain += c;
            ++m_nAt;
        }
    }

    /// Takes everything to the character that closes, the two included.
    std::string Enclosed(char open, char close) {
        const std::size_t begin = m_nAt++;
        int depth = 1;
        while (m_nAt < m_text.size() && depth > 0) {
            const char c = m_text[m_nAt];
            if (c == '\\' && open != '<') {
                ++m_nAt;
            } else if (c == close) {
                --depth;
            } else if (c == open && open == '(') {
                ++depth;
            }
            ++m_nAt;
        }
        if (depth > 0) {
            throw MailFault(m_strField, std::string("expected \"") + close + "\" after \"" + open +
                                            "\" in a list of addresses, found \"" +
                                            MakeVisible(m_text.substr(begin, 60)) + "\"");
        }
        return std::string(m_text.substr(begin, m_nAt - begin));
    }

    void Finish() {
        std::string address = m_bHasAngled ? m_strAngled : m_strPlain;
        const std::size_t first = address.find_first_not_of(" \t");
        const std::size_t last = address.find_last_not_of(" \t");
        address = first == std::string::npos ? "" : address.substr(first, last - first + 1);
        if (m_bHasAngled && address.empty()) {
            throw MailFault(m_strField, "expected a mail address between \"<\" and \">\", found none");
        }
        if (!m_bHasAngled && address.find_first_of(" \t") != std::string::npos && address.front() != '"') {
            throw MailFault(m_strField, "expected mail addresses with commas between them, found \"" +
                                            MakeVisible(address.substr(0, 60)) + "\"");
        }
        if (!address.empty()) {
            m_vecAddresses.push_back(address);
        }
        m_strPlain.clear();
        m_strAngled.clear();
        m_bHasAngled = false;
    }

    const std::string m_strField;
    const std::string_view m_text;
    std::size_t m_nAt = 0;
    std::string m_strPlain;   ///< what stands outside of angle brackets
    std::string m_strAngled;  ///< what stands between them
    bool m_bHasAngled = false;
    std::vector<std::string> m_vecAddresses;
};

}  // namespace

std::vector<std::string> ReadAddresses(const std::string& field, const std::string& text) {
    return AddressScanner(field, text).Read();
}

std::string ComparableAddress(const std::string& address) {
    const std::size_t at = address.rfind('@');
    return at == std::string::npos ? address : address.substr(0, at) + LowerCase(address.substr(at));
}

}  // namespace kvhost
