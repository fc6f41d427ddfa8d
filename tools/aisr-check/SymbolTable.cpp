// SPDX-License-Identifier: Apache-2.0
#include "SymbolTable.h"

#include <elf.h>

#include <cstring>
#include <fstream>
#include <iterator>

namespace checker {
namespace {

/** The record at `offset`; zero where the file is too short for it. */
template <typename RECORD>
RECORD recordAt(const std::string& file, size_t offset) {
    RECORD record{};
    if (offset <= file.size() && file.size() - offset >= sizeof(RECORD)) {
        std::memcpy(&record, file.data() + offset, sizeof(RECORD));
    }
    return record;
}

bool isExported(const Elf64_Sym& symbol) {
    const auto binding = ELF64_ST_BIND(symbol.st_info);
    const auto visibility = ELF64_ST_VISIBILITY(symbol.st_other);
    return symbol.st_shndx != SHN_UNDEF && binding != STB_LOCAL &&
           (visibility == STV_DEFAULT || visibility == STV_PROTECTED);
}

}  // namespace

std::vector<DynamicSymbol> exportedSymbols(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    const std::string file{std::istreambuf_iterator<char>(stream), {}};
    const auto header = recordAt<Elf64_Ehdr>(file, 0);
    std::vector<DynamicSymbol> symbols;
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) {
        return symbols;
    }
    const auto section = [&](size_t number) {
        return recordAt<Elf64_Shdr>(file, header.e_shoff + number * sizeof(Elf64_Shdr));
    };
    for (size_t i = 0; i < header.e_shnum; ++i) {
        const Elf64_Shdr table = section(i);
        if (table.sh_type != SHT_DYNSYM) {
            continue;
        }
        const Elf64_Shdr names = section(table.sh_link);
        for (size_t at = 0; at + sizeof(Elf64_Sym) <= table.sh_size && at < file.size();
             at += sizeof(Elf64_Sym)) {
            const auto symbol = recordAt<Elf64_Sym>(file, table.sh_offset + at);
            const size_t name = names.sh_offset + symbol.st_name;
            if (isExported(symbol) && name < file.size()) {
                symbols.push_back({file.c_str() + name, ELF64_ST_TYPE(symbol.st_info) == STT_FUNC,
                                   ELF64_ST_BIND(symbol.st_info) == STB_GNU_UNIQUE});
            }
        }
    }
    return symbols;
}

}  // namespace checker
