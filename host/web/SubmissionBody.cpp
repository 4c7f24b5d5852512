#include "SubmissionBody.h"

#include <set>
#include <stdexcept>
#include <utility>

#include "JsonObject.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

using nlohmann::json;

constexpr int kMostDepth = 8;  // a list, its object, the attachments and their fields need five
constexpr std::size_t kMostSubmissions = 1000;

/// What is well-formed JSON and not taken.
class Unwanted : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Watches the depth and the fields of every object while the body is parsed.
class ShapeWatch {
public:
    bool operator()(int depth, json::parse_event_t event, const json& parsed) {
        if (depth > kMostDepth) {
            throw Unwanted("expected submissions, found values nested more than " +
                           std::to_string(kMostDepth) + " deep");
        }
        const auto level = static_cast<std::size_t>(depth);
        if (event == json::parse_event_t::object_start) {
            m_vecFields.resize(level + 1);
            m_vecFields.emplace_back();
        } else if (event == json::parse_event_t::key && !IsNew(level, parsed.get<std::string>())) {
            throw Unwanted("expected every field once, found \"" + MakeVisible(parsed.get<std::string>()) +
                           "\" twice in one object");
        }
        return true;
    }

private:
    // The fields of an object come one level below its start.
    bool IsNew(std::size_t level, const std::string& field) {
        return m_vecFields.at(level).insert(field).second;
    }

    std::vector<std::set<std::string>> m_vecFields;
};

json Parse(const std::string& text) {
    ShapeWatch watch;
    return json::parse(text, [&watch](int depth, json::parse_event_t event, json& parsed) {
        return watch(depth, event, parsed);
    });
}

SubmissionBody Sort(json value) {
    SubmissionBody body;
    if (value.is_object() && value.contains("jobs")) {
        if (value.size() != 1 || !value["jobs"].is_array()) {
            body.wrong = "expected an array as the only field \"jobs\"";
            return body;
        }
        json jobs = std::move(value["jobs"]);
        value = std::move(jobs);
    }
    body.isList = value.is_array();
    if (body.isList) {
        body.submissions = std::move(value.get_ref<json::array_t&>());
    } else if (value.is_object()) {
        body.submissions.push_back(std::move(value));
    } else {
        body.wrong = "expected a JSON object or an array of them, found " + TypeName(value);
    }
    if (body.isList && body.submissions.empty()) {
        body.wrong = "expected at least one submission, found an empty array";
    } else if (body.submissions.size() > kMostSubmissions) {
        body.wrong = "expected at most " + std::to_string(kMostSubmissions) + " submissions, found " +
                     std::to_string(body.submissions.size()) + "; make several requests of them";
    }
    return body;
}

SubmissionBody Wrong(const std::string& text) {
    SubmissionBody body;
    body.wrong = text;
    return body;
}

}  // namespace

SubmissionBody ReadSubmissionBody(const std::string& text) {
    try {
        return Sort(Parse(text));
    } catch (const json::parse_error& error) {
        return Wrong("malformed JSON at byte " + std::to_string(error.byte) +
                     ", expected a JSON object or an array of them, in UTF-8");
    } catch (const json::out_of_range&) {
        return Wrong("expected submissions, found a number that is too large");
    } catch (const Unwanted& error) {
        return Wrong(error.what());
    }
}

}  // namespace kvhost
