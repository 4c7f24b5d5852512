#pragma once

#include <optional>
#include <string>

namespace kvhost {

/// Reads a file or the standard input line by line, and tells when the next line is not there yet. One thread at a
/// time.
class LineReader {
public:
    /// `path`: "-" is the standard input. Throws BadInput when it cannot be opened. `interrupt`: a descriptor that cuts
    /// short a wait for what is no regular file as soon as it is readable; -1 for none.
    explicit LineReader(const std::string& path, int interrupt = -1);
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    /// The next line without its LF; nothing at the end. Waits for it. Throws BadInput when reading fails, and for a
    /// line of more than 256 MiB.
    std::optional<std::string> Next();
    /// True when Next will not wait. Throws as Next.
    bool IsReady();
    /// Everything that is left. Throws as Next, for more than 256 MiB.
    std::string Rest();

    /// True when the end was not reached, because a wait was cut short.
    bool WasInterrupted() const { return m_bInterrupted; }

    /// How messages call what is read: its path, or "standard input".
    const std::string& Name() const { return m_strName; }
    /// Number of the line that Next gave last, from 1.
    unsigned long Line() const { return m_nLine; }

private:
    bool HasLine();
    void ReadMore();
    bool WaitForMore();

    const std::string m_strName;
    const int m_fd;
    const int m_interrupt;
    std::string m_strBuffer;
    std::size_t m_nBegin = 0;    ///< of what was not given out yet
    std::size_t m_nScanned = 0;  ///< up to here there is no LF
    unsigned long m_nLine = 0;
    bool m_bEnd = false;
    bool m_bInterrupted = false;
};

}  // namespace kvhost
