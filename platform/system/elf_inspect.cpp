// Looks into a library's file before the host's loader does. The loader tells only in words why it refuses a file.
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/core/descriptor.h"
#include "platform/core/error.h"
#include "platform/core/retry.h"
#include "platform/system/module.h"

// The linker defines this symbol.
extern "C" [[gnu::visibility("hidden")]] const ElfW(Ehdr) __ehdr_start;

namespace platform {

namespace {

using file_header = ElfW(Ehdr);
using program_header = ElfW(Phdr);
using dynamic_entry = ElfW(Dyn);

constexpr size_t longest_name = 256;
constexpr size_t most_entries = 65536; // a table with more belongs to no library

class elf_file {
public:
    explicit elf_file(const descriptor& file, uint64_t size) : file_(file), size_(size) {}

    // Whether the loader can map the file: it is for this machine, and no segment ends beyond the file.
    bool read_headers() {
        file_header header;
        if (!read(0, &header, sizeof header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0
            || header.e_ident[EI_CLASS] != __ehdr_start.e_ident[EI_CLASS]
            || header.e_ident[EI_DATA] != __ehdr_start.e_ident[EI_DATA]
            || header.e_machine != __ehdr_start.e_machine || header.e_type != ET_DYN
            || header.e_phentsize != sizeof(program_header))
            return false;
        programs_.resize(header.e_phnum);
        if (!read(header.e_phoff, programs_.data(), programs_.size() * sizeof(program_header)))
            return false;
        for (const program_header& program : programs_) {
            if (program.p_type == PT_LOAD && !is_inside(program.p_offset, program.p_filesz))
                return false;
        }
        return true;
    }

    void read_needed(std::vector<std::string>& needed) const {
        const std::vector<dynamic_entry> entries = dynamic_entries();
        uint64_t names = 0;
        for (const dynamic_entry& entry : entries) {
            if (entry.d_tag == DT_STRTAB)
                names = offset_of(entry.d_un.d_ptr);
        }
        for (const dynamic_entry& entry : entries) {
            if (entry.d_tag != DT_NEEDED || names == 0)
                continue;
            char name[longest_name] = {};
            read_some(names + entry.d_un.d_val, name, sizeof name - 1);
            needed.emplace_back(name);
        }
    }

private:
    bool is_inside(uint64_t offset, uint64_t size) const { return offset <= size_ && size <= size_ - offset; }

    ssize_t read_some(uint64_t offset, void* out, size_t size) const {
        return retried([&] { return pread(file_.get(), out, size, static_cast<off_t>(offset)); });
    }

    bool read(uint64_t offset, void* out, size_t size) const {
        return is_inside(offset, size) && read_some(offset, out, size) == static_cast<ssize_t>(size);
    }

    // The file offset of an address in the mapped library; 0 when no segment holds it.
    uint64_t offset_of(uint64_t address) const {
        for (const program_header& program : programs_) {
            if (program.p_type == PT_LOAD && address >= program.p_vaddr
                && address - program.p_vaddr < program.p_filesz)
                return address - program.p_vaddr + program.p_offset;
        }
        return 0;
    }

    std::vector<dynamic_entry> dynamic_entries() const {
        for (const program_header& program : programs_) {
            if (program.p_type != PT_DYNAMIC || program.p_filesz / sizeof(dynamic_entry) > most_entries)
                continue;
            std::vector<dynamic_entry> entries(program.p_filesz / sizeof(dynamic_entry));
            if (read(program.p_offset, entries.data(), entries.size() * sizeof(dynamic_entry)))
                return entries;
        }
        return {};
    }

    const descriptor& file_;
    const uint64_t size_;
    std::vector<program_header> programs_;
};

} // namespace

const file_header& this_library_s_header() {
    return __ehdr_start;
}

DWORD code_of_missing_library(int error) {
    switch (error) {
    case EMFILE:
    case ENFILE:
    case ENOMEM:
    case EIO:
    case EACCES: return code_of_errno(error);
    default: return ERROR_MOD_NOT_FOUND;
    }
}

DWORD inspect_library(const char* path, std::vector<std::string>& needed) {
    const descriptor file(retried([&] { return open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
    struct stat status;
    if (!file || fstat(file.get(), &status) != 0)
        return code_of_missing_library(errno);
    if (S_ISDIR(status.st_mode))
        return ERROR_ACCESS_DENIED;
    elf_file content(file, static_cast<uint64_t>(status.st_size));
    if (!S_ISREG(status.st_mode) || !content.read_headers())
        return ERROR_BAD_EXE_FORMAT;
    content.read_needed(needed);
    return ERROR_SUCCESS;
}

} // namespace platform
