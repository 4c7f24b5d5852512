#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace kvhost {

/// The submissions of a request's body.
struct SubmissionBody {
    std::vector<nlohmann::json> submissions;
    bool isList = false;  ///< the body is a list, if of one
    std::string wrong;    ///< why the body cannot be read; empty when it can
};

/// Reads a JSON object, an array, or an object whose only field "jobs" is an array. An object that gives a field twice
/// and one that is nested deeper than any submission are refused.
SubmissionBody ReadSubmissionBody(const std::string& text);

}  // namespace kvhost
