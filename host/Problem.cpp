#include "Problem.h"

namespace kvhost {

namespace {

std::string JoinLines(const std::vector<Problem>& problems) {
    std::string text;
    for (const Problem& problem : problems) {
        text += (text.empty() ? "" : "\n") + Describe(problem);
    }
    return text;
}

}  // namespace

std::string Describe(const Problem& problem) {
    std::string text = problem.file;
    if (problem.line != 0) {
        text += ":" + std::to_string(problem.line);
    }
    if (!problem.field.empty()) {
        text += ": " + problem.field;
    }
    return text + ": " + problem.text;
}

BadInput::BadInput(const std::vector<Problem>& problems) : std::runtime_error(JoinLines(problems)) {}

}  // namespace kvhost
