#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kvhost {

/// A message that cannot be read: which part of it, and what was expected.
class MailFault : public std::runtime_error {
public:
    MailFault(std::string field, const std::string& text)
        : std::runtime_error(text), m_strField(std::move(field)) {}

    const std::string& Field() const { return m_strField; }

private:
    const std::string m_strField;
};

/// The header of a message or of one part of it. Immutable value.
struct MailHeader {
    struct Field {
        std::string name;   ///< in lower case
        std::string value;  ///< unfolded, without blanks around it
    };

    std::vector<Field> fields;

    /// All values of the fields of that name (in lower case), in their order.
    std::vector<std::string> All(std::string_view name) const;
    /// The value of the only field of that name; nothing when there is none. Throws MailFault when there are several.
    std::optional<std::string> Only(std::string_view name) const;
};

/// A message or a part of it, cut at its first empty line. The body refers to the text that it was cut from.
struct MailEntity {
    MailHeader header;
    std::string_view body;
};

/// Reads the header (RFC 5322 2.2) and leaves the body alone; lines may end in LF or CR LF. Throws MailFault.
MailEntity ReadEntity(std::string_view text);

/// A value with parameters, such as that of Content-Type (RFC 2045 5.1). Immutable value.
struct MailValue {
    std::string value;  ///< in lower case
    std::map<std::string, std::string>
        parameters;  ///< names in lower case; values in UTF-8, put together (RFC 2231)
};

/// Throws MailFault, naming `field`, for what is malformed and for a character set that is not known.
MailValue ReadMailValue(const std::string& field, const std::string& text);

/// `text` in lower case, ASCII letters only.
std::string LowerCase(std::string_view text);

}  // namespace kvhost
