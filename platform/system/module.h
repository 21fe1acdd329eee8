// Inside the layer: the parts that load dynamic libraries.
#pragma once

#include <link.h>

#include <atomic>
#include <string>
#include <vector>

#include "platform/api/system.h"
#include "platform/core/descriptor.h"

namespace platform {

// A module that the layer provides itself, under a name that families load. Case does not count in it.
struct built_in_module {
    struct entry_point {
        const char* name;
        FARPROC address;
    };
    const WCHAR* name;
    const entry_point* entry_points;
    size_t count;
};

extern const built_in_module* const built_in_modules[]; // ended by null

// False only in tests: these names are then loaded from disk like any other.
extern std::atomic<bool> built_in_modules_offered;

// Reads the names of the libraries that a library's file needs, in its order. The result is 0, 126 (ERROR_MOD_NOT_FOUND)
// for a missing file, 5 (ERROR_ACCESS_DENIED) for a directory and for a file that may not be read, 193
// (ERROR_BAD_EXE_FORMAT) for a file that is no library of this machine, or the code of why it could not be read.
DWORD inspect_library(const char* path, std::vector<std::string>& needed);

// Calls dlopen. The result is null, with the last-error code, on failure.
void* open_library(const std::string& name);

// The code for an errno of a search for a library: 126 if it is missing, otherwise why the search failed.
DWORD code_of_missing_library(int error);

// The file header of this library itself. It names the machine that other libraries must be for.
const ElfW(Ehdr) & this_library_s_header();

// The library whose symbol dlsym finds under a name. A library that defines versions without functions is what remained
// when its functions moved into another library: it stands for its dependencies.
enum class exporter { nobody, itself, dependencies };
exporter exporter_of(const link_map& library, const char* name);

// Loads libraries of a folder, so that others find them by their bare names. They stay loaded while this object lives,
// and afterwards as long as another library needs them. The folder ends with a slash. In a folder with a colon in its
// name, a library is found only by its SONAME.
class library_folder {
public:
    library_folder(const std::vector<std::string>& names, const std::string& folder);
    ~library_folder();
    library_folder(const library_folder&) = delete;
    library_folder& operator=(const library_folder&) = delete;

    // False, with the last-error code, if the libraries could not be loaded.
    explicit operator bool() const { return is_there_; }

private:
    const descriptor image_; // its number is the stub's name, so it stays open while the stub is loaded
    void* library_ = nullptr;
    bool is_there_;
};

} // namespace platform
