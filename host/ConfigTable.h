#pragma once

#include <toml++/toml.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Duration.h"
#include "Problem.h"

namespace kvhost {

/// Reads the fields of one table of a configuration file and notes what is wrong with them, each fault with
/// its line. One thread at a time; refers to the table, which must outlive it.
///
/// Every reader answers nothing both for an absent field and for one that was refused. Values are never
/// repeated in messages unless they are numbers: a field may hold a password.
class ConfigTable {
public:
    /// `path` is how messages name the table, such as "carrier.alarms"; empty for the whole file.
    ConfigTable(const toml::table& table, std::string file, std::string path, std::vector<Problem>& problems);

    bool Has(std::string_view key) const { return m_table.contains(key); }
    std::optional<std::string> Text(std::string_view key);
    /// As Text; an absent field is refused too.
    std::optional<std::string> NeededText(std::string_view key);
    std::optional<std::int64_t> Integer(std::string_view key, std::int64_t least, std::int64_t most);
    std::optional<bool> Boolean(std::string_view key);
    /// A number with or without decimals.
    std::optional<double> Number(std::string_view key, double least, double most);
    /// See kDurationForm.
    std::optional<Milliseconds> Duration(std::string_view key, Milliseconds least, Milliseconds most);
    std::optional<std::vector<std::string>> Texts(std::string_view key);
    const toml::table* Table(std::string_view key);
    /// Has `read` read the fields of the table `key`, if there is one.
    void ReadTable(std::string_view key, const std::function<void(ConfigTable& fields)>& read);

    /// The node of any type; counts as asked for.
    const toml::node* Node(std::string_view key);

    /// Refuses every field that was not asked for; `expected` names the ones there are.
    void RefuseOthers(const std::string& expected);
    /// Notes that the value of `key` is wrong; the line is the value's, or the table's when it is absent.
    void Refuse(std::string_view key, const std::string& text);

private:
    std::string FieldName(std::string_view key) const;
    void RefuseType(std::string_view key, const char* expected, const toml::node& found);

    const toml::table& m_table;
    const std::string m_strFile;
    const std::string m_strPath;
    std::vector<Problem>& m_vecProblems;
    std::set<std::string, std::less<>> m_setAskedFor;
};

/// The type of `node` for messages, such as "an integer".
const char* TypeName(const toml::node& node);

/// The line that `node` begins on.
unsigned long LineOf(const toml::node& node);

}  // namespace kvhost
