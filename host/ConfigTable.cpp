#include "ConfigTable.h"

#include <sstream>
#include <utility>

#include "VisibleText.h"

namespace kvhost {

ConfigTable::ConfigTable(const toml::table& table, std::string file, std::string path,
                         std::vector<Problem>& problems)
    : m_table(table), m_strFile(std::move(file)), m_strPath(std::move(path)), m_vecProblems(problems) {}

std::optional<std::string> ConfigTable::Text(std::string_view key) {
    const toml::node* node = Node(key);
    if (node == nullptr) {
        return std::nullopt;
    }
    if (!node->is_string()) {
        RefuseType(key, "a string", *node);
        return std::nullopt;
    }
    return node->value<std::string>();
}

std::optional<std::string> ConfigTable::NeededText(std::string_view key) {
    if (!Has(key)) {
        Node(key);
        Refuse(key, "expected a string, the field is missing");
        return std::nullopt;
    }
    return Text(key);
}

std::optional<std::int64_t> ConfigTable::Integer(std::string_view key, std::int64_t least,
                                                 std::int64_t most) {
    const toml::node* node = Node(key);
    if (node == nullptr) {
        return std::nullopt;
    }
    const std::string range = "an integer from " + std::to_string(least) + " to " + std::to_string(most);
    if (!node->is_integer()) {
        RefuseType(key, range.c_str(), *node);
        return std::nullopt;
    }
    const std::int64_t value = node->as_integer()->get();
    if (value < least || value > most) {
        Refuse(key, "expected " + range + ", found " + std::to_string(value));
        return std::nullopt;
    }
    return value;
}

std::optional<bool> ConfigTable::Boolean(std::string_view key) {
    const toml::node* node = Node(key);
    if (node == nullptr) {
        return std::nullopt;
    }
    if (!node->is_boolean()) {
        RefuseType(key, "true or false", *node);
        return std::nullopt;
    }
    return node->as_boolean()->get();
}

std::optional<double> ConfigTable::Number(std::string_view key, double least, double most) {
    const toml::node* node = Node(key);
    if (node == nullptr) {
        return std::nullopt;
    }
    std::ostringstream range;
    range << "a number from " << least << " to " << most;
    if (!node->is_number()) {
        RefuseType(key, range.str().c_str(), *node);
        return std::nullopt;
    }
    const double value = node->value<double>().value_or(least - 1);
    // Written so that a value that is no number is refused as well.
    if (!(value >= least && value <= most)) {
        Refuse(key, "expected " + range.str());
        return std::nullopt;
    }
    return value;
}

std::optional<Milliseconds> ConfigTable::Duration(std::string_view key, Milliseconds least,
                                                  Milliseconds most) {
    const toml::node* node = Node(key);
    if (node == nullptr) {
        return std::nullopt;
    }
    if (!node->is_string()) {
        RefuseType(key, kDurationForm, *node);
        return std::nullopt;
    }
    const std::optional<Milliseconds> value = ParseDuration(node->value_or<std::string>(""));
    if (!value || *value < least || *value > most) {
        Refuse(key, std::string("expected ") + kDurationForm + ", from " + DurationText(least) + " to " +
                        DurationText(most));
        return std::nullopt;
    }
    return value;
}

std::optional<std::vector<std::string>> ConfigTable::Texts(std::string_view key) {
    const toml::node* node = Node(key);
    if (node == nullptr) {
        return std::nullopt;
    }
    const toml::array* array = node->as_array();
    if (array == nullptr || !(array->empty() || array->is_homogeneous(toml::node_type::string))) {
        Refuse(key, "expected a list of strings");
        return std::nullopt;
    }
    std::vector<std::string> texts;
    for (const toml::node& item : *array) {
        texts.push_back(item.value_or<std::string>(""));
    }
    return texts;
}

const toml::table* ConfigTable::Table(std::string_view key) {
    const toml::node* node = Node(key);
    if (node != nullptr && !node->is_table()) {
        RefuseType(key, "a table", *node);
        return nullptr;
    }
    return node == nullptr ? nullptr : node->as_table();
}

void ConfigTable::ReadTable(std::string_view key, const std::function<void(ConfigTable&)>& read) {
    if (const toml::table* table = Table(key)) {
        ConfigTable fields(*table, m_strFile, FieldName(key), m_vecProblems);
        read(fields);
    }
}

const toml::node* ConfigTable::Node(std::string_view key) {
    m_setAskedFor.emplace(key);
    return m_table.get(key);
}

void ConfigTable::RefuseOthers(const std::string& expected) {
    for (const auto& [key, value] : m_table) {
        if (m_setAskedFor.find(key.str()) == m_setAskedFor.end()) {
            Refuse(key.str(), "unknown field, expected " + expected);
        }
    }
}

void ConfigTable::Refuse(std::string_view key, const std::string& text) {
    const toml::node* node = m_table.get(key);
    const unsigned long line = LineOf(node != nullptr ? *node : static_cast<const toml::node&>(m_table));
    m_vecProblems.push_back({m_strFile, line, FieldName(key), text});
}

void ConfigTable::RefuseType(std::string_view key, const char* expected, const toml::node& found) {
    Refuse(key, std::string("expected ") + expected + ", found " + TypeName(found));
}

std::string ConfigTable::FieldName(std::string_view key) const {
    return (m_strPath.empty() ? "" : m_strPath + ".") + MakeVisible(key);
}

const char* TypeName(const toml::node& node) {
    switch (node.type()) {
        case toml::node_type::table:
            return "a table";
        case toml::node_type::array:
            return "an array";
        case toml::node_type::string:
            return "a string";
        case toml::node_type::integer:
            return "an integer";
        case toml::node_type::floating_point:
            return "a floating-point number";
        case toml::node_type::boolean:
            return "a boolean";
        default:
            return "a date or time";
    }
}

unsigned long LineOf(const toml::node& node) {
    return node.source().begin.line;
}

}  // namespace kvhost
