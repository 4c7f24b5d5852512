#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kvhost {

/// Why a text is no JSON object, or nothing and the object. Keys that are given twice are refused.
struct ParsedObject {
    nlohmann::json object;
    std::optional<std::string> wrong;
};

/// Parses `text` as one JSON object (RFC 8259).
ParsedObject ParseJsonObject(const std::string& text);

/// The type of `value` for messages, such as "a number".
std::string TypeName(const nlohmann::json& value);

/// Reads the fields of one JSON object and notes what is wrong with them. One thread at a time; refers to the
/// object.
///
/// Every reader answers nothing both for an absent field and for one that was refused.
class JsonFields {
public:
    struct Fault {
        std::string field;
        std::string text;
    };

    explicit JsonFields(const nlohmann::json& object) : m_object(object) {}

    bool Has(const std::string& key) const { return m_object.contains(key); }
    std::optional<std::string> Text(const std::string& key);
    /// As Text; an absent field is refused too.
    std::optional<std::string> NeededText(const std::string& key);
    std::optional<std::vector<std::string>> Texts(const std::string& key);
    std::optional<bool> Boolean(const std::string& key);
    /// The value of any type, null when there is none; counts as asked for.
    const nlohmann::json* Node(const std::string& key);

    void Refuse(const std::string& field, const std::string& text) { m_vecFaults.push_back({field, text}); }
    /// Refuses every field that was not asked for; `expected` names the ones there are.
    void RefuseOthers(const std::string& expected);

    const std::vector<Fault>& Faults() const { return m_vecFaults; }

private:
    const nlohmann::json& m_object;
    std::set<std::string> m_setAskedFor;
    std::vector<Fault> m_vecFaults;
};

}  // namespace kvhost
