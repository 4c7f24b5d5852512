#include "CarrierReader.h"

#include <utility>

#include "CarrierFields.h"
#include "InputChecks.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

/// "FIELD: TEXT; FIELD: TEXT" of the problems from `first` on.
std::string Reasons(const std::vector<Problem>& problems, std::size_t first) {
    std::string text;
    for (std::size_t i = first; i < problems.size(); ++i) {
        text += (text.empty() ? "" : "; ") + Describe(problems[i]);
    }
    return text;
}

}  // namespace

CarrierReader::CarrierReader(std::string file, const RetryPolicy& retry, SecretsUse secrets,
                             HostConfig& config)
    : m_strFile(std::move(file)), m_retry(retry), m_secrets(secrets), m_config(config) {}

void CarrierReader::Read(const toml::node& node) {
    if (node.is_table()) {
        ReadByName(*node.as_table());
    } else if (node.is_array_of_tables()) {
        ReadArray(*node.as_array());
    } else {
        throw BadInput(
            {Problem{m_strFile, LineOf(node), "carrier",
                     std::string("expected [[carrier]] or [carrier.NAME], found ") + TypeName(node)}});
    }
    NumberTheRest();
}

void CarrierReader::ReadArray(const toml::array& carriers) {
    std::size_t number = 0;
    for (const toml::node& node : carriers) {
        ReadOne(*node.as_table(), "carrier[" + std::to_string(++number) + "]", "");
    }
}

void CarrierReader::ReadByName(const toml::table& carriers) {
    for (const auto& [key, node] : carriers) {
        const std::string name(key.str());
        if (node.is_table()) {
            ReadOne(*node.as_table(), "carrier." + MakeVisible(name), name);
            continue;
        }
        const std::size_t first = m_config.problems.size();
        m_config.problems.push_back({m_strFile, LineOf(node), "carrier." + MakeVisible(name),
                                     std::string("expected a table, found ") + TypeName(node)});
        RefuseCarrier(name, first);
    }
}

void CarrierReader::ReadOne(const toml::table& table, const std::string& path, const std::string& givenName) {
    const std::size_t firstProblem = m_config.problems.size();
    ConfigTable fields(table, m_strFile, path, m_config.problems);
    Draft draft{ReadCarrierFields(fields, m_strFile, givenName, m_retry, m_secrets), LineOf(table), path,
                fields.Has("id")};
    Accept(std::move(draft), m_config.problems.size() == firstProblem, firstProblem);
}

void CarrierReader::Accept(Draft draft, bool isFaultless, std::size_t firstProblem) {
    const std::string name = draft.carrier.name;
    if (!name.empty() && !m_setNames.insert(name).second) {
        RefuseRepeatedName(draft);
    } else if (!isFaultless || !IdIsFree(draft)) {
        RefuseCarrier(name, firstProblem);
    } else {
        if (!draft.hasId) {
            m_vecToNumber.push_back(name);
        }
        m_config.carriers.emplace(name, std::move(draft.carrier));
    }
}

void CarrierReader::RefuseRepeatedName(const Draft& draft) {
    const std::size_t first = m_config.problems.size();
    m_config.problems.push_back(
        {m_strFile, draft.line, draft.field, "the name is given twice; expected one carrier of each name"});
    m_config.carriers.erase(draft.carrier.name);
    RefuseCarrier(draft.carrier.name, first);
}

void CarrierReader::RefuseCarrier(const std::string& name, std::size_t firstProblem) {
    if (!name.empty()) {
        m_config.refusedCarriers[name] = Reasons(m_config.problems, firstProblem);
    }
}

bool CarrierReader::IdIsFree(const Draft& draft) {
    if (!draft.hasId || m_setIds.insert(draft.carrier.id).second) {
        return true;
    }
    m_config.problems.push_back(
        {m_strFile, draft.line, draft.field + ".id",
         "expected an id of its own, " + std::to_string(draft.carrier.id) + " is another carrier's"});
    return false;
}

void CarrierReader::NumberTheRest() {
    unsigned long next = 1;
    for (const std::string& name : m_vecToNumber) {
        const auto found = m_config.carriers.find(name);
        if (found == m_config.carriers.end()) {
            continue;
        }
        while (!m_setIds.insert(next).second) {
            ++next;
        }
        found->second.id = next;
    }
}

}  // namespace kvhost
