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

// False in tests alone: then these names are loaded from disk like any other.
extern std::atomic<bool> built_in_modules_offered;

// 0 for a file that can be a library, and the libraries that it wants, in its order. Else 126 (missing), 5 (a
// directory, or not readable), 193 (something else, or for another machine), or the code of why nobody can say.
DWORD inspect_library(const char* path, std::vector<std::string>& needed);

// dlopen; null with the last-error code.
void* open_library(const std::string& name);

// The code for an errno met while looking for a library: 126, or why nobody can say whether it is there.
DWORD code_of_missing_library(int error);

// The file header of this very library, which names the machine that others must be for.
const ElfW(Ehdr) & this_library_s_header();

// Whose symbol dlsym finds under a name. A library that defines versions and nothing under them is a shell that was
// left when its functions moved into another library: it stands for its dependencies.
enum class exporter { nobody, itself, dependencies };
exporter exporter_of(const link_map& library, const char* name);

// Loads libraries of a folder, so that others find them by their bare names: while this lives, and for as long
// afterwards as another library wants them. The folder ends with a slash. In one with a colon, a library counts only
// under its SONAME.
class library_folder {
public:
    library_folder(const std::vector<std::string>& names, const std::string& folder);
    ~library_folder();
    library_folder(const library_folder&) = delete;
    library_folder& operator=(const library_folder&) = delete;

    // False, with the last-error code, when they could not be loaded.
    explicit operator bool() const { return is_there_; }

private:
    const descriptor image_; // its number is the stub's name, so it is open as long as the stub is loaded
    void* library_ = nullptr;
    bool is_there_;
};

} // namespace platform
