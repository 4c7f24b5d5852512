#pragma once

#include <map>
#include <string>

#include "Kvobject.h"

/// A table of message texts by key, read from resource files. Externally synchronised: Load() and Unload()
/// must not run while another thread uses the table.
///
/// Compatibility: only the lines of a file that begin with white space are entries. Their first 10
/// characters, the white space among them, are the key; the 11th is dropped; the text is the rest, with its
/// newline. Relied on by: resource files, whose entries are indented and whose comments are not. Held by:
/// KvsystemResourceTest.OnlyLinesThatBeginWithWhiteSpaceAreEntries,
/// KvsystemResourceTest.TheTextOfAnEntryEndsWithItsNewline.
class KvsystemResource : public Kvobject {
public:
    KvsystemResource() = default;
    ~KvsystemResource() override = default;
    KvsystemResource(const KvsystemResource&) = default;
    KvsystemResource& operator=(const KvsystemResource&) = default;

    /// Adds the entries of the file `path` to the table; a key that is there already keeps its text. True at
    /// the end of the file, false when it cannot be opened.
    ///
    /// Compatibility: an entry of 10 characters or fewer, such as an empty line, makes it throw
    /// std::out_of_range "basic_string::substr". The entries before it stay, and so does the open file.
    /// Relied on by: start-up code that takes the exception for the end of the process.
    /// Held by: KvsystemResourceTest.AnEmptyLineThrowsAndKeepsTheEntriesBeforeIt,
    /// KvsystemResourceDeathTest.TheFileStaysOpenAfterAShortEntry.
    bool Load(const std::string& path);

    /// The text of `key`, compared byte for byte; "Unknown" when there is none.
    std::string GetString(const std::string& key);

    /// Empties the table. Always true.
    bool Unload();

protected:
    void AddLine(const std::string& lineText);

    std::map<std::string, std::string> m_mapTexts;
};

/// The texts of this process; the library's start-up fills them once, nothing changes them afterwards.
extern KvsystemResource the_LibResource;

/// The directory given to the library's start-up, empty before it.
extern std::string the_ResourceDir;
