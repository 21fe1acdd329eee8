// The symbols that a loaded library exports itself. dlsym also finds those of its dependencies. An address does not tell
// the two apart: an indirect function may lie in the vDSO, and a TLS variable on the heap.
#include <elf.h>
#include <link.h>

#include <cstring>

#include "platform/system/module.h"

namespace platform {

namespace {

using symbol = ElfW(Sym);

constexpr uint16_t hidden_version = 0x8000;
constexpr uint16_t first_version_of_its_own = 2; // 0 and 1 are "local" and "global"

class export_table {
public:
    explicit export_table(const link_map& library) {
        for (const ElfW(Dyn)* entry = library.l_ld; entry->d_tag != DT_NULL; ++entry) {
            // In a table that the loader may write to, it has replaced offsets by addresses.
            const uintptr_t value = entry->d_un.d_ptr;
            const auto* at =
                reinterpret_cast<const char*>(value >= library.l_addr ? value : library.l_addr + value);
            switch (entry->d_tag) {
            case DT_SYMTAB: symbols_ = reinterpret_cast<const symbol*>(at); break;
            case DT_STRTAB: names_ = at; break;
            case DT_VERSYM: versions_ = reinterpret_cast<const uint16_t*>(at); break;
            case DT_HASH: table_ = reinterpret_cast<const uint32_t*>(at); break;
            case DT_GNU_HASH: gnu_table_ = reinterpret_cast<const uint32_t*>(at); break;
            case DT_VERDEF: defines_versions_ = true; break;
            }
        }
        find_bounds();
    }

    exporter exporter_of(const char* name) const {
        if (!symbols_ || !names_)
            return exporter::nobody;
        bool exports_anything = false;
        for (uint32_t i = first_; i < end_; ++i) {
            if (!is_exported(i))
                continue;
            exports_anything = true;
            if (std::strcmp(names_ + symbols_[i].st_name, name) == 0)
                return exporter::itself;
        }
        return defines_versions_ && !exports_anything ? exporter::dependencies : exporter::nobody;
    }

private:
    // No table holds the count of symbols. In the GNU hash table the last chain ends with the last symbol.
    void find_bounds() {
        if (!gnu_table_) {
            first_ = 1;
            end_ = table_ ? table_[1] : 0;
            return;
        }
        const uint32_t buckets = gnu_table_[0], filter_words = gnu_table_[2];
        first_ = gnu_table_[1];
        const uint32_t* const bucket =
            gnu_table_ + 4 + filter_words * (sizeof(ElfW(Addr)) / sizeof(uint32_t));
        const uint32_t* const chain = bucket + buckets;
        uint32_t last = 0;
        for (uint32_t i = 0; i < buckets; ++i)
            last = bucket[i] > last ? bucket[i] : last;
        while (last >= first_ && !(chain[last - first_] & 1))
            ++last;
        end_ = last + 1;
    }

    bool is_exported(uint32_t i) const {
        const symbol& one = symbols_[i];
        const bool names_a_version = one.st_shndx == SHN_ABS && one.st_value == 0;
        return one.st_shndx != SHN_UNDEF && !names_a_version && ELF64_ST_BIND(one.st_info) != STB_LOCAL
               && (!versions_ || !(versions_[i] & hidden_version)
                   || (versions_[i] & ~hidden_version) < first_version_of_its_own);
    }

    const symbol* symbols_ = nullptr;
    const char* names_ = nullptr;
    const uint16_t* versions_ = nullptr;
    const uint32_t* table_ = nullptr;
    const uint32_t* gnu_table_ = nullptr;
    bool defines_versions_ = false;
    uint32_t first_ = 0, end_ = 0;
};

} // namespace

exporter exporter_of(const link_map& library, const char* name) {
    return export_table(library).exporter_of(name);
}

} // namespace platform
