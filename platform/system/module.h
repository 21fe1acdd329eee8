// Inside the layer: what the loading of dynamic libraries is made of.
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

// What a file of the host is to the loader: 0, or why it cannot be a library: missing (126), a directory or not
// readable (5), something else or for another machine (193), or the code of why nobody can say. Fills in the libraries
// that it wants, in its order.
DWORD inspect_library(const char* path, std::vector<std::string>& needed);

// The host's loader; null with the last-error code.
void* open_library(const std::string& name);

// The code for an errno met while looking for a library: 126, or why nobody can say whether it is there.
DWORD code_of_missing_library(int error);

// The file header of this very library, which names the machine that others must be for.
const ElfW(Ehdr) & this_library_s_header();

// Whose symbol dlsym finds under a name. A library that defines versions and nothing under them is a shell that was
// left when its functions moved into another library: it stands for its dependencies.
enum class exporter { nobody, itself, dependencies };
exporter exporter_of(const link_map& library, const char* name);

// Libraries of a folder that are there under their bare names while this lives, and for as long afterwards as another
// library wants them. The folder ends with a slash; in one with a colon, only the names in the files count.
class library_folder {
public:
    library_folder(const std::vector<std::string>& names, const std::string& folder);
    ~library_folder();
    library_folder(const library_folder&) = delete;
    library_folder& operator=(const library_folder&) = delete;

    // False, with the last-error code, when they could not be loaded.
    explicit operator bool() const { return is_there_; }

private:
    const descriptor image_; // open while it is loaded: its number is its name
    void* library_ = nullptr;
    bool is_there_;
};

} // namespace platform
