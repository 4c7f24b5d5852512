#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace kvhost {

/// Why one piece of the input is refused: where it stands and what would have been right. Immutable value.
struct Problem {
    std::string file;
    unsigned long line = 0;  ///< counted from 1; 0 when the problem is the file itself
    std::string field;       ///< empty when the problem is the line itself
    std::string text;        ///< such as "expected a string, found an integer"
};

/// "FILE:LINE: FIELD: TEXT"; parts that are unknown are left out.
std::string Describe(const Problem& problem);

/// Bad usage, or input that nothing can be sent with: the command ends with status 2.
class BadInput : public std::runtime_error {
public:
    explicit BadInput(const std::string& text) : std::runtime_error(text) {}
    /// One line of text for each problem.
    explicit BadInput(const std::vector<Problem>& problems);
};

}  // namespace kvhost
