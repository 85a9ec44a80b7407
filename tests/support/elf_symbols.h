// What a shared library shows to the loader: its dynamic symbols and its dynamic section.
#pragma once

#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <elf.h>

namespace test {

struct ElfSymbol {
    std::string name;
    std::string version; // of an undefined one, such as GLIBC_2.17; empty without
    unsigned char type;  // STT_...
    unsigned char binding;
    unsigned char visibility;
    bool defined;
    uint64_t size;
};

class ElfLibrary {
public:
    explicit ElfLibrary(const std::string &path)
    {
        std::ostringstream content;
        content << std::ifstream(path, std::ios::binary).rdbuf();
        bytes_ = content.str();
        if (bytes_.size() < sizeof(Elf64_Ehdr) || memcmp(bytes_.data(), ELFMAG, SELFMAG) != 0)
            throw std::runtime_error(path + ": no ELF file");
        const auto header = at<Elf64_Ehdr>(0);
        for (uint64_t i = 0; i < header.e_shnum; ++i)
            sections_.push_back(at<Elf64_Shdr>(header.e_shoff + i * header.e_shentsize));
    }

    std::vector<ElfSymbol> dynamic_symbols() const
    {
        const Elf64_Shdr &table = section(SHT_DYNSYM);
        const Elf64_Shdr &versions = section(SHT_GNU_versym);
        std::vector<ElfSymbol> symbols;
        for (uint64_t i = 1; i < table.sh_size / sizeof(Elf64_Sym); ++i) {
            const auto symbol = at<Elf64_Sym>(table.sh_offset + i * sizeof(Elf64_Sym));
            const auto version = at<uint16_t>(versions.sh_offset + i * sizeof(uint16_t));
            symbols.push_back({text(table.sh_link, symbol.st_name), needed_version(version),
                               static_cast<unsigned char>(ELF64_ST_TYPE(symbol.st_info)),
                               static_cast<unsigned char>(ELF64_ST_BIND(symbol.st_info)),
                               static_cast<unsigned char>(ELF64_ST_VISIBILITY(symbol.st_other)),
                               symbol.st_shndx != SHN_UNDEF, symbol.st_size});
        }
        return symbols;
    }

    // The texts of the dynamic section's entries with a tag, such as DT_NEEDED.
    std::vector<std::string> dynamic_texts(int64_t tag) const
    {
        const Elf64_Shdr &table = section(SHT_DYNAMIC);
        std::vector<std::string> texts;
        for (uint64_t i = 0; i < table.sh_size / sizeof(Elf64_Dyn); ++i) {
            const auto entry = at<Elf64_Dyn>(table.sh_offset + i * sizeof(Elf64_Dyn));
            if (entry.d_tag == tag)
                texts.push_back(text(table.sh_link, entry.d_un.d_val));
        }
        return texts;
    }

private:
    template <typename Record>
    Record at(uint64_t offset) const
    {
        Record record;
        if (offset + sizeof record > bytes_.size())
            throw std::runtime_error("an ELF record lies outside its file");
        memcpy(&record, bytes_.data() + offset, sizeof record);
        return record;
    }
    const Elf64_Shdr &section(uint32_t type) const
    {
        for (const Elf64_Shdr &section : sections_) {
            if (section.sh_type == type)
                return section;
        }
        throw std::runtime_error("an ELF section is missing");
    }
    std::string text(uint32_t string_table, uint64_t offset) const
    {
        return bytes_.data() + sections_.at(string_table).sh_offset + offset;
    }
    std::string needed_version(uint16_t index) const
    {
        const Elf64_Shdr &table = section(SHT_GNU_verneed);
        uint64_t need_at = table.sh_offset;
        for (uint32_t i = 0; i < table.sh_info; ++i) {
            const auto need = at<Elf64_Verneed>(need_at);
            uint64_t version_at = need_at + need.vn_aux;
            for (uint16_t j = 0; j < need.vn_cnt; ++j) {
                const auto version = at<Elf64_Vernaux>(version_at);
                if (version.vna_other == (index & 0x7FFF))
                    return text(table.sh_link, version.vna_name);
                version_at += version.vna_next;
            }
            need_at += need.vn_next;
        }
        return "";
    }

    std::string bytes_;
    std::vector<Elf64_Shdr> sections_;
};

} // namespace test
