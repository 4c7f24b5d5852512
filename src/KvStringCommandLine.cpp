#include "KvString.h"
#include "KvStringCharacters.h"

namespace {

bool IsMarked(char c) {
    return c == '"' || c == '\\';
}

/// Takes a command line character by character and collects its arguments.
class ArgumentCollector {
public:
    void TakeMarked(char c) { Append(c); }

    void Take(char c) {
        if (c == '"') {
            m_bQuoted = !m_bQuoted;
            m_bStarted = true;
        } else if (KvstringIsSpace(c) && !m_bQuoted) {
            EndArgument();
        } else {
            Append(c);
        }
    }

    std::vector<std::string> Finish() {
        EndArgument();
        return m_vecArguments;
    }

private:
    void Append(char c) {
        m_strArgument += c;
        m_bStarted = true;
    }

    void EndArgument() {
        if (m_bStarted) {
            m_vecArguments.push_back(m_strArgument);
        }
        m_strArgument.clear();
        m_bStarted = false;
    }

    std::vector<std::string> m_vecArguments;
    std::string m_strArgument;
    bool m_bStarted = false;  ///< told apart from an empty argument in quotes
    bool m_bQuoted = false;
};

}  // namespace

std::string KvstringArgumentEncode(const std::string& argument) {
    std::string result = "\"";
    for (const char c : argument) {
        if (IsMarked(c)) {
            result += '\\';
        }
        result += c;
    }
    return result + '"';
}

std::vector<std::string> BuildCommandLineArguments(const std::string& commandLine) {
    ArgumentCollector collector;
    for (std::size_t i = 0; i < commandLine.size(); ++i) {
        const bool isMark =
            commandLine[i] == '\\' && i + 1 < commandLine.size() && IsMarked(commandLine[i + 1]);
        if (isMark) {
            collector.TakeMarked(commandLine[++i]);
        } else {
            collector.Take(commandLine[i]);
        }
    }
    return collector.Finish();
}
