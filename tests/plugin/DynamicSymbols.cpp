#include "DynamicSymbols.h"

#include <elf.h>
#include <link.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

namespace {

/// A library file in memory. Offsets are checked, so that a damaged file is reported and not read past its end.
class ElfFile {
public:
    explicit ElfFile(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        m_bytes.assign(std::istreambuf_iterator<char>(file), {});
        if (m_bytes.size() < sizeof(ElfW(Ehdr)) || std::memcmp(m_bytes.data(), ELFMAG, SELFMAG) != 0) {
            throw std::runtime_error(path + " is not an ELF file");
        }
    }

    template <typename Record>
    Record at(std::size_t offset) const {
        check(offset, sizeof(Record));
        Record record;
        std::memcpy(&record, m_bytes.data() + offset, sizeof(record));
        return record;
    }

    std::string text(std::size_t offset) const {
        check(offset, 1);
        return m_bytes.data() + offset;
    }

    std::vector<ElfW(Shdr)> sections() const {
        const auto header = at<ElfW(Ehdr)>(0);
        std::vector<ElfW(Shdr)> all;
        for (std::size_t i = 0; i < header.e_shnum; ++i) {
            all.push_back(at<ElfW(Shdr)>(header.e_shoff + i * header.e_shentsize));
        }
        return all;
    }

private:
    void check(std::size_t offset, std::size_t size) const {
        if (offset + size > m_bytes.size()) {
            throw std::runtime_error("damaged ELF file");
        }
    }

    std::vector<char> m_bytes;
};

}  // namespace

std::set<std::string> ExportedSymbols(const std::string& path) {
    const ElfFile file(path);
    const auto sections = file.sections();
    std::set<std::string> names;
    for (const auto& section : sections) {
        if (section.sh_type != SHT_DYNSYM) {
            continue;
        }
        for (std::size_t offset = 0; offset < section.sh_size; offset += section.sh_entsize) {
            const auto symbol = file.at<ElfW(Sym)>(section.sh_offset + offset);
            if (symbol.st_shndx != SHN_UNDEF && symbol.st_shndx != SHN_ABS) {
                names.insert(file.text(sections[section.sh_link].sh_offset + symbol.st_name));
            }
        }
    }
    return names;
}
