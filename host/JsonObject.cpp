#include "JsonObject.h"

#include "VisibleText.h"

namespace kvhost {

namespace {

using nlohmann::json;

/// Watches the keys of the outermost object while it is parsed.
class RepeatedKeyWatch {
public:
    bool operator()(int depth, json::parse_event_t event, json& parsed) {
        if (event == json::parse_event_t::key && depth == 1 &&
            !m_setKeys.insert(parsed.get<std::string>()).second) {
            m_optRepeated = parsed.get<std::string>();
        }
        return true;
    }

    std::optional<std::string> Repeated() const { return m_optRepeated; }

private:
    std::set<std::string> m_setKeys;
    std::optional<std::string> m_optRepeated;
};

}  // namespace

std::string TypeName(const json& value) {
    if (value.is_null()) {
        return "null";
    }
    const std::string name = value.type_name();
    return (name == "array" || name == "object" ? "an " : "a ") + name;
}

ParsedObject ParseJsonObject(const std::string& text) {
    RepeatedKeyWatch keys;
    const auto watch = [&keys](int depth, json::parse_event_t event, json& parsed) {
        return keys(depth, event, parsed);
    };
    ParsedObject result;
    try {
        result.object = json::parse(text, watch);
    } catch (const json::parse_error& error) {
        result.wrong = "malformed JSON at byte " + std::to_string(error.byte) + ", expected one JSON object";
        return result;
    } catch (const json::out_of_range&) {
        result.wrong = "expected one JSON object, found a number that is too large in it";
        return result;
    }
    if (!result.object.is_object()) {
        result.wrong = "expected one JSON object, found " + TypeName(result.object);
    } else if (keys.Repeated()) {
        result.wrong = "expected every field once, found \"" + MakeVisible(*keys.Repeated()) + "\" twice";
    }
    return result;
}

std::optional<std::string> JsonFields::Text(const std::string& key) {
    m_setAskedFor.insert(key);
    const auto found = m_object.find(key);
    if (found == m_object.end()) {
        return std::nullopt;
    }
    if (!found->is_string()) {
        Refuse(key, "expected a string, found " + TypeName(*found));
        return std::nullopt;
    }
    return found->get<std::string>();
}

std::optional<std::string> JsonFields::NeededText(const std::string& key) {
    if (!Has(key)) {
        Refuse(key, "expected a string, the field is missing");
    }
    return Text(key);
}

std::optional<std::vector<std::string>> JsonFields::Texts(const std::string& key) {
    m_setAskedFor.insert(key);
    const auto found = m_object.find(key);
    if (found == m_object.end()) {
        return std::nullopt;
    }
    if (!found->is_array()) {
        Refuse(key, "expected an array of strings, found " + TypeName(*found));
        return std::nullopt;
    }
    std::vector<std::string> texts;
    for (const json& element : *found) {
        if (!element.is_string()) {
            Refuse(key, "expected an array of strings, found " + TypeName(element) + " in it");
            return std::nullopt;
        }
        texts.push_back(element.get<std::string>());
    }
    return texts;
}

std::optional<bool> JsonFields::Boolean(const std::string& key) {
    const json* found = Node(key);
    if (found == nullptr) {
        return std::nullopt;
    }
    if (!found->is_boolean()) {
        Refuse(key, "expected true or false, found " + TypeName(*found));
        return std::nullopt;
    }
    return found->get<bool>();
}

const json* JsonFields::Node(const std::string& key) {
    m_setAskedFor.insert(key);
    const auto found = m_object.find(key);
    return found == m_object.end() ? nullptr : &*found;
}

void JsonFields::RefuseOthers(const std::string& expected) {
    for (const auto& item : m_object.items()) {
        if (m_setAskedFor.count(item.key()) == 0) {
            Refuse(MakeVisible(item.key()), "unknown field, expected " + expected);
        }
    }
}

}  // namespace kvhost
