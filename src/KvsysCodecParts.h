#pragma once

#include <string>

// What the source files of the codec and KvstringReplaceStr() share. Immutable: pure functions of their
// arguments. Not for use outside this folder.

/// `text` with every `what`, taken from the left without overlaps, replaced by `with`. REQUIRES: `what` not
/// empty.
std::string KvsysReplaceEach(const std::string& text, const std::string& what, const std::string& with);

/// The byte that the two characters at `digits` name in hexadecimal, as strtol reads them: a character that
/// is no digit ends the number early, so two of them give 0.
char KvsysByteOfHexPair(const char* digits);
