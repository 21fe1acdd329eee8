// Loading libraries of one folder under their bare names.
//
// dlopen finds a dependency by its bare name only if it was loaded under that name or has it as its SONAME, and
// searches a folder only if an RPATH names it. So a tiny library is built in memory, with the folder as its RPATH and a
// DT_NEEDED for each library.
#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "platform/core/error.h"
#include "platform/system/module.h"

namespace platform {

namespace {

using file_header = ElfW(Ehdr);
using program_header = ElfW(Phdr);
using dynamic_entry = ElfW(Dyn);
using symbol = ElfW(Sym);

template <class Record>
std::string_view bytes_of(const Record& record) {
    return {reinterpret_cast<const char*>(&record), sizeof record};
}

// The dynamic table and the string table of a library.
struct dynamic_table {
    std::string entries;
    std::string texts = std::string(1, '\0');

    void add(decltype(dynamic_entry::d_tag) tag, size_t value) {
        dynamic_entry entry{};
        entry.d_tag = tag;
        entry.d_un.d_val = value;
        entries += bytes_of(entry);
    }
    void add(decltype(dynamic_entry::d_tag) tag, const std::string& text) {
        add(tag, texts.size());
        texts.append(text).push_back('\0');
    }
};

program_header segment(uint32_t type, size_t offset, size_t size, size_t alignment) {
    program_header result{};
    result.p_type = type;
    result.p_flags = PF_R | PF_W;
    result.p_offset = result.p_vaddr = result.p_paddr = offset;
    result.p_filesz = result.p_memsz = size;
    result.p_align = alignment;
    return result;
}

// The image of a library: headers, dynamic table, the null symbol, string table.
std::string library_that_wants(const std::vector<std::string>& names, const std::string& folder) {
    constexpr size_t segments = 3;
    constexpr size_t further_entries = 5;
    dynamic_table table;
    table.add(DT_RPATH, folder);
    const bool is_list = folder.find(':') != std::string::npos; // the loader splits an RPATH at colons
    for (const std::string& name : names)
        table.add(DT_NEEDED, is_list ? folder + name : name);
    const size_t table_at = sizeof(file_header) + segments * sizeof(program_header);
    const size_t table_size = table.entries.size() + further_entries * sizeof(dynamic_entry);
    const size_t symbol_at = table_at + table_size;
    const size_t texts_at = symbol_at + sizeof(symbol);
    const size_t size = texts_at + table.texts.size();
    table.add(DT_SYMTAB, symbol_at);
    table.add(DT_SYMENT, sizeof(symbol));
    table.add(DT_STRTAB, texts_at);
    table.add(DT_STRSZ, table.texts.size());
    table.add(DT_NULL, size_t{0});

    file_header header = this_library_s_header(); // has the fields that describe this machine
    header.e_type = ET_DYN;
    header.e_entry = header.e_shoff = 0;
    header.e_shnum = header.e_shstrndx = 0;
    header.e_phoff = sizeof header;
    header.e_phnum = segments;
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    std::string image(bytes_of(header));
    image += bytes_of(segment(PT_LOAD, 0, size, page));
    image += bytes_of(segment(PT_DYNAMIC, table_at, table_size, alignof(dynamic_entry)));
    image += bytes_of(segment(PT_GNU_STACK, 0, 0, 0)); // without it the loader makes stacks executable
    image += table.entries;
    image += bytes_of(symbol{});
    return image += table.texts;
}

} // namespace

library_folder::library_folder(const std::vector<std::string>& names, const std::string& folder)
    : image_(names.empty() ? -1 : memfd_create("libraries", MFD_CLOEXEC)), is_there_(names.empty()) {
    if (is_there_)
        return;
    const std::string bytes = library_that_wants(names, folder);
    if (!image_ || write(image_.get(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
        SetLastError(code_of_errno(errno));
        return;
    }
    library_ = open_library("/proc/self/fd/" + std::to_string(image_.get()));
    is_there_ = library_ != nullptr;
}

library_folder::~library_folder() {
    if (library_)
        dlclose(library_);
}

} // namespace platform
