// Dynamic libraries, by the host's loader.
#include "platform/system/module.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <set>

#include "platform/api/files.h"
#include "platform/api/text.h"
#include "platform/core/error.h"
#include "platform/files/place.h"

namespace platform {

namespace {

constexpr int load_mode = RTLD_NOW | RTLD_LOCAL;
constexpr wide_view library_extension = u".so";

// ---- What is loaded ---------------------------------------------------------------------------------------------

// The modules that were loaded through this layer, how often, and under which name first; each holds the host's library
// once. The host's loader would follow any pointer that it is given; here a made-up or used-up handle is an error like
// others.
struct module_table {
    struct entry {
        size_t loads = 0;
        std::u16string name;
    };
    std::mutex lock;
    std::map<void*, entry> entries;
};

module_table& table() {
    static module_table* const made =
        new module_table; // never destroyed: threads may outlive the program's end
    return *made;
}

bool is_built_in(const void* module) {
    for (const built_in_module* const* at = built_in_modules; *at; ++at) {
        if (*at == module)
            return true;
    }
    return false;
}

// The first load of a module sets the code 0, another leaves it alone.
HMODULE loaded(void* module, wide_view name) {
    module_table& modules = table();
    std::unique_lock hold(modules.lock);
    module_table::entry& entry = modules.entries[module];
    const bool is_first = ++entry.loads == 1;
    if (is_first)
        entry.name = name;
    hold.unlock(); // whoever calls the loader may wait for another thread's load, whose library may load others
    if (is_first)
        SetLastError(ERROR_SUCCESS);
    else if (!is_built_in(module))
        dlclose(module);
    return static_cast<HMODULE>(module);
}

HMODULE load_again(const std::u16string& name) {
    module_table& modules = table();
    const std::lock_guard hold(modules.lock);
    for (auto& [module, entry] : modules.entries) {
        if (lstrcmpiW(entry.name.c_str(), name.c_str()) == 0) {
            ++entry.loads;
            return static_cast<HMODULE>(module);
        }
    }
    return nullptr;
}

bool is_loaded(void* module) {
    module_table& modules = table();
    const std::lock_guard hold(modules.lock);
    return modules.entries.contains(module);
}

const built_in_module* find_built_in(const WCHAR* name) {
    for (const built_in_module* const* at = built_in_modules; *at && built_in_modules_offered; ++at) {
        if (lstrcmpiW((*at)->name, name) == 0)
            return *at;
    }
    return nullptr;
}

// ---- Dependencies -----------------------------------------------------------------------------------------------

bool is_there(const std::string& name) {
    void* library = dlopen(name.c_str(), load_mode | RTLD_NOLOAD);
    if (library)
        dlclose(library);
    return library != nullptr;
}

// Collects the libraries of a folder that a library of the folder wants and that are not there yet, each behind those
// that it wants itself.
void collect_from_folder(const std::string& folder, const std::vector<std::string>& needed,
                         std::set<std::string>& seen, std::vector<std::string>& found) {
    for (const std::string& name : needed) {
        if (name.find('/') != std::string::npos || !seen.insert(name).second || is_there(name))
            continue;
        std::vector<std::string> further;
        if (inspect_library((folder + name).c_str(), further) != ERROR_SUCCESS)
            continue;
        collect_from_folder(folder, further, seen, found);
        found.push_back(name);
    }
}

// ---- Finding ----------------------------------------------------------------------------------------------------

size_t last_component(wide_view path) {
    return path.find_last_of(u"\\/:") + 1; // 0 without a separator, since npos + 1 is 0
}

std::u16string with_extension(wide_view path) {
    std::u16string complete(path);
    const wide_view name = path.substr(last_component(path));
    if (name.ends_with(u'.'))
        complete.pop_back();
    else if (!name.empty() && name.find(u'.') == wide_view::npos)
        complete += library_extension;
    return complete;
}

// The host path of a file; 0, or a code.
DWORD find_library(const std::u16string& path, std::string& host_path) {
    place where;
    if (where.set(path.c_str()) != ERROR_SUCCESS || where.ends_with_separator())
        return ERROR_MOD_NOT_FOUND;
    if (!where.find())
        return errno == EACCES ? ERROR_ACCESS_DENIED : ERROR_MOD_NOT_FOUND;
    host_path = where.whole_name();
    return ERROR_SUCCESS;
}

// The loader tells only in words why it failed. A file that it found and did not like stands in front of them.
DWORD code_of_loader_failure() {
    const char* words = dlerror();
    const std::string path = words ? words : "";
    std::vector<std::string> needed;
    DWORD code = ERROR_SUCCESS;
    if (path.starts_with('/'))
        code = inspect_library(path.substr(0, path.find(": ")).c_str(), needed);
    return code != ERROR_SUCCESS ? code : ERROR_MOD_NOT_FOUND;
}

HMODULE load_file(const std::string& path, wide_view name, DWORD flags) {
    std::vector<std::string> needed;
    if (const DWORD code = inspect_library(path.c_str(), needed))
        return fail<HMODULE>(code);
    const std::string folder = path.substr(0, path.rfind('/') + 1);
    std::set<std::string> seen;
    std::vector<std::string> wanted;
    if (flags & LOAD_WITH_ALTERED_SEARCH_PATH)
        collect_from_folder(folder, needed, seen, wanted);
    const library_folder there(wanted, folder);
    void* library = dlopen(path.c_str(), load_mode);
    return library ? loaded(library, name) : fail<HMODULE>(code_of_loader_failure());
}

std::u16string beside_executable(wide_view name) {
    const keep_last_error code;
    std::u16string path(longest_path + 1, 0);
    const DWORD size = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    path.resize(std::min<size_t>(size, path.size()));
    path.resize(last_component(path));
    return path.append(name);
}

HMODULE load_bare_name(const std::u16string& name, DWORD flags) {
    if (HMODULE module = load_again(name))
        return module;
    std::string path;
    if (find_library(beside_executable(name), path) == ERROR_SUCCESS)
        return load_file(path, name, flags);
    std::string host_name;
    void* library = nullptr;
    if (append_host_name(name, host_name) && !host_name.empty())
        library = dlopen(host_name.c_str(), load_mode);
    return library ? loaded(library, name) : fail<HMODULE>(code_of_loader_failure());
}

// ---- Entry points -----------------------------------------------------------------------------------------------

FARPROC find_entry_point(const built_in_module& module, const char* name) {
    for (size_t i = 0; i < module.count; ++i) {
        if (std::strcmp(module.entry_points[i].name, name) == 0)
            return module.entry_points[i].address;
    }
    return nullptr;
}

// The host's loader finds what the dependencies of a library export as well: that does not count.
FARPROC find_entry_point(void* library, const char* name) {
    void* address = dlsym(library, name);
    link_map* own = nullptr;
    dl_find_object owner;
    const bool is_own = address && dlinfo(library, RTLD_DI_LINKMAP, &own) == 0
                        && _dl_find_object(address, &owner) == 0 && owner.dlfo_link_map == own;
    return is_own ? reinterpret_cast<FARPROC>(address) : nullptr;
}

void* executable() {
    static void* const handle = dlopen(nullptr, load_mode);
    return handle;
}

} // namespace

HMODULE LoadLibraryExW(const WCHAR* path, HANDLE file, DWORD flags) {
    if (!path || file)
        return fail<HMODULE>(ERROR_INVALID_PARAMETER);
    const std::u16string complete = with_extension(path);
    if (const built_in_module* module = find_built_in(complete.c_str()))
        return loaded(const_cast<built_in_module*>(module), module->name);
    const wide_view name = wide_view(complete).substr(last_component(complete));
    if (name.size() == complete.size())
        return load_bare_name(complete, flags);
    std::string host_path;
    if (const DWORD code = find_library(complete, host_path))
        return fail<HMODULE>(code);
    return load_file(host_path, name, flags);
}

HMODULE LoadLibraryW(const WCHAR* path) {
    return LoadLibraryExW(path, nullptr, 0);
}

BOOL FreeLibrary(HMODULE module) {
    if (!module) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    module_table& modules = table();
    bool is_last = false;
    {
        const std::lock_guard hold(modules.lock);
        const auto found = modules.entries.find(module);
        if (found == modules.entries.end()) {
            SetLastError(ERROR_MOD_NOT_FOUND);
            return FALSE;
        }
        is_last = --found->second.loads == 0;
        if (is_last)
            modules.entries.erase(found);
    }
    if (is_last) {
        if (!is_built_in(module))
            dlclose(module);
        SetLastError(ERROR_SUCCESS);
    }
    return TRUE;
}

FARPROC GetProcAddress(HMODULE module, const char* name) {
    constexpr uintptr_t last_ordinal = 0xFFFF; // a number in place of a name; no module here has numbers
    if (module && !is_loaded(module)) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    FARPROC found = nullptr;
    if (reinterpret_cast<uintptr_t>(name) > last_ordinal) {
        found = module && is_built_in(module)
                    ? find_entry_point(*reinterpret_cast<const built_in_module*>(module), name)
                    : find_entry_point(module ? module : executable(), name);
    }
    if (!found)
        SetLastError(ERROR_PROC_NOT_FOUND);
    return found;
}

} // namespace platform
