// Library files of any bytes: a small library whose bytes the input changes, three bytes a change.
#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/check.h"
#include "platform/platform.h"
#include "platform/system/module.h"

namespace {

struct library_image {
    ElfW(Ehdr) header = platform::this_library_s_header();
    ElfW(Phdr) programs[2] = {};
    ElfW(Dyn) entries[4] = {
        {DT_STRTAB, {offsetof(library_image, names)}}, {DT_NEEDED, {1}}, {DT_NEEDED, {5}}, {}};
    char names[16] = "\0one\0two";

    library_image() {
        header.e_type = ET_DYN;
        header.e_phoff = offsetof(library_image, programs);
        header.e_phnum = 2;
        programs[0].p_type = PT_LOAD;
        programs[0].p_filesz = sizeof *this;
        programs[1].p_type = PT_DYNAMIC;
        programs[1].p_offset = offsetof(library_image, entries);
        programs[1].p_filesz = sizeof entries;
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int file = memfd_create("library", MFD_CLOEXEC);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    const library_image whole;
    char bytes[sizeof whole];
    std::memcpy(bytes, &whole, sizeof whole);
    for (size_t i = 1; i + 2 < size; i += 3)
        bytes[(data[i] | data[i + 1] << 8) % sizeof bytes] = static_cast<char>(data[i + 2]);
    const size_t length = size < 1 || data[0] >= 128 ? sizeof bytes : sizeof bytes * data[0] / 128;
    check(ftruncate(file, 0) == 0 && pwrite(file, bytes, length, 0) == static_cast<ssize_t>(length));
    std::vector<std::string> needed;
    const platform::DWORD code = platform::inspect_library(path.c_str(), needed);
    check(code == 0 || (code == 193 && needed.empty()));
    check(size > 0 || (needed == std::vector<std::string>{"one", "two"}));
    for (const std::string& name : needed)
        check(name.size() < 256);
    return 0;
}
