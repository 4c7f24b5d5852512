#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "RecordingLog.h"
#include "driver/FrameworkDoubles.h"
#include "driver/SmtpDoubles.h"

// Log lines as a reader meets them in a listing: severity, origin and text in columns.
//
//     info    pool     Creating new connection object.
//     trace   sent     <= RSET<CR><LF>
//
// The origin stands for what the line gives as its source. In the text a carriage return and a line feed appear
// as \r and \n, and what differs from run to run as a name that begins with $. A listing may have empty lines,
// and lines that begin with # and tell the reader where he is.

namespace kvtest {

/// The text to be replaced, and the name that stands for it.
using Placeholders = std::map<std::string, std::string>;

inline std::string ReplaceAll(std::string text, const std::string& what, const std::string& by) {
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size())) {
        text.replace(at, what.size(), by);
    }
    return text;
}

/// The lines once for every number from `first` to `last`, which stands where they have {n}.
inline std::string RepeatLines(int first, int last, const std::string& lines) {
    std::string repeated;
    for (int number = first; number <= last; ++number) {
        repeated += ReplaceAll(lines, "{n}", std::to_string(number));
    }
    return repeated;
}

/// The name of a source in listings. Unknown sources, and lines without a number, are shown as they are.
inline std::string OriginOf(const LogEntry& entry) {
    static const std::map<std::string, std::string> files{
        {kSessionSource, "session"},     {kPoolSource, "pool"},
        {kDelegateSource, "delegate"},   {kSmtpSource, "smtp"},
        {kDispatcherSource, "dispatch"}, {"../system/src/KvEmailDriver", "engine"},
    };
    // The sockets' lines have fixed numbers. Inside TLS a text that goes out whole has one of its own.
    static const std::map<std::pair<std::string, int>, std::string> places{
        {{"../src/KvioSocket", 174}, "sent"},
        {{"../src/KvioSocket", 226}, "received"},
        {{"../src/KvioSSLClientSocket", 303}, "sent*"},
        {{"../src/KvioSSLClientSocket", 326}, "text*"},
        {{"../src/KvioSSLClientSocket", 284}, "recvd*"},
    };
    if (const auto place = places.find({entry.file, entry.line}); place != places.end()) {
        return place->second;
    }
    const auto file = files.find(entry.file);
    return file != files.end() && entry.line > 0 ? file->second
                                                 : entry.file + ":" + std::to_string(entry.line);
}

inline std::string InColumn(const std::string& text, std::size_t width) {
    return text + std::string(width - std::min(text.size(), width - 1), ' ');
}

inline const std::string& NameOf(Severity severity) {
    static const std::vector<std::string> names{"trace", "debug", "info", "warning", "error"};
    return names.at(static_cast<std::size_t>(severity));
}

inline std::string ListingLine(const LogEntry& entry, const Placeholders& placeholders) {
    std::string text = ReplaceAll(ReplaceAll(entry.text, "\r", "\\r"), "\n", "\\n");
    for (const auto& [volatilePart, name] : placeholders) {
        text = ReplaceAll(text, volatilePart, name);
    }
    return InColumn(NameOf(entry.severity), 8) + InColumn(OriginOf(entry), 9) + text;
}

/// What this thread has logged, or what all others have, in order.
inline Strings LinesLogged(const RecordingLog& log, bool byThisThread, const Placeholders& placeholders) {
    Strings lines;
    for (const LogEntry& entry : log.entries()) {
        if ((pthread_equal(entry.thread, pthread_self()) != 0) == byThisThread) {
            lines.push_back(ListingLine(entry, placeholders));
        }
    }
    return lines;
}

/// The lines of a listing, without what is there for the reader only.
inline Strings LinesOfListing(const std::string& listing) {
    Strings lines;
    for (std::size_t begin = 0; begin < listing.size();) {
        const std::size_t end = std::min(listing.find('\n', begin), listing.size());
        if (end > begin && listing[begin] != '#') {
            lines.push_back(listing.substr(begin, end - begin));
        }
        begin = end + 1;
    }
    return lines;
}

/// Those of the lines that have this severity, in order.
inline Strings LinesOfSeverity(const Strings& lines, Severity severity) {
    Strings chosen;
    std::ranges::copy_if(lines, std::back_inserter(chosen), [&](const std::string& line) {
        return line.starts_with(InColumn(NameOf(severity), 8));
    });
    return chosen;
}

/// Up to five lines from the one with this index on, indented.
inline std::string ExcerptOf(const Strings& lines, std::size_t first) {
    std::string text;
    for (std::size_t at = first; at < std::min(first + 5, lines.size()); ++at) {
        text += "    " + lines[at] + "\n";
    }
    return text;
}

/// Whether the lines are those of the listing, one by one. A failure shows the first place where they part.
inline testing::AssertionResult AreTheLinesOf(const Strings& listed, const Strings& lines) {
    if (lines == listed) {
        return testing::AssertionSuccess();
    }
    const auto where = std::ranges::mismatch(lines, listed).in1 - lines.begin();
    const auto at = static_cast<std::size_t>(where);
    return testing::AssertionFailure() << lines.size() << " lines, " << listed.size()
                                       << " listed; they part at line " << at + 1 << "\n  listed:\n"
                                       << ExcerptOf(listed, at) << "  logged:\n"
                                       << ExcerptOf(lines, at);
}

}  // namespace kvtest
