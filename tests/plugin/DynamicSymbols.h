#pragma once

#include <set>
#include <string>

/// The names of the symbols that an ELF shared library defines and exports, read from its dynamic symbol table.
/// Throws std::runtime_error when the file is no such library.
std::set<std::string> ExportedSymbols(const std::string& path);
