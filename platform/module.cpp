// Dynamic libraries, by the host's loader.
#include "platform/module.h"

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
#include "platform/error.h"
#include "platform/lookup.h"

namespace platform {

namespace {

constexpr int load_mode = RTLD_NOW | RTLD_LOCAL;
constexpr wide_view library_extension = u".so";

// ---- What is loaded ---------------------------------------------------------------------------------------------

// How often each module has been loaded through this layer. The host's loader would follow any pointer that it is
// given; here a made-up or used-up handle is an error like others.
struct module_table {
    std::mutex lock;
    std::map<void*, size_t> loads;
};

module_table& table() {
    static module_table* const made =
        new module_table; // never destroyed: threads may outlive the program's end
    return *made;
}

// The first load of a module sets the code 0, another leaves it alone.
HMODULE loaded(void* module) {
    module_table& modules = table();
    const std::lock_guard hold(modules.lock);
    if (++modules.loads[module] == 1)
        SetLastError(ERROR_SUCCESS);
    return static_cast<HMODULE>(module);
}

bool is_loaded(void* module) {
    module_table& modules = table();
    const std::lock_guard hold(modules.lock);
    return modules.loads.contains(module);
}

HMODULE failed(DWORD code) {
    SetLastError(code);
    return nullptr;
}

const built_in_module* find_built_in(const WCHAR* name) {
    for (const built_in_module* const* at = built_in_modules; *at && built_in_modules_offered; ++at) {
        if (lstrcmpiW((*at)->name, name) == 0)
            return *at;
    }
    return nullptr;
}

bool is_built_in(const void* module) {
    for (const built_in_module* const* at = built_in_modules; *at; ++at) {
        if (*at == module)
            return true;
    }
    return false;
}

// ---- Dependencies -----------------------------------------------------------------------------------------------

// The libraries of a folder that a library of the folder wants, loaded ahead of it: the host's loader takes what is
// there under the wanted name before it searches. They are let go at the end; by then the library holds them itself.
class dependencies {
public:
    explicit dependencies(std::string folder) : folder_(std::move(folder)) {}
    ~dependencies() {
        for (void* library : libraries_)
            dlclose(library);
    }
    dependencies(const dependencies&) = delete;
    dependencies& operator=(const dependencies&) = delete;

    void load(const std::vector<std::string>& needed) {
        for (const std::string& name : needed) {
            if (name.find('/') != std::string::npos || !seen_.insert(name).second || is_there(name))
                continue;
            const std::string path = folder_ + name;
            std::vector<std::string> further;
            if (inspect_library(path.c_str(), further) != ERROR_SUCCESS)
                continue;
            load(further);
            if (void* library = dlopen(path.c_str(), load_mode))
                libraries_.push_back(library);
        }
    }

private:
    static bool is_there(const std::string& name) {
        void* library = dlopen(name.c_str(), load_mode | RTLD_NOLOAD);
        if (library)
            dlclose(library);
        return library != nullptr;
    }

    const std::string folder_;
    std::set<std::string> seen_;
    std::vector<void*> libraries_;
};

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

HMODULE load_file(const std::string& path, DWORD flags) {
    std::vector<std::string> needed;
    if (const DWORD code = inspect_library(path.c_str(), needed))
        return failed(code);
    dependencies wanted(path.substr(0, path.rfind('/') + 1));
    if (flags & LOAD_WITH_ALTERED_SEARCH_PATH)
        wanted.load(needed);
    void* library = dlopen(path.c_str(), load_mode);
    return library ? loaded(library) : failed(ERROR_MOD_NOT_FOUND);
}

std::u16string beside_executable(wide_view name) {
    const last_error_kept code;
    std::u16string path(longest_path + 1, 0);
    const DWORD size = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    path.resize(std::min<size_t>(size, path.size()));
    path.resize(last_component(path));
    return path.append(name);
}

HMODULE load_bare_name(const std::u16string& name, DWORD flags) {
    std::string path;
    if (find_library(beside_executable(name), path) == ERROR_SUCCESS)
        return load_file(path, flags);
    std::string host_name;
    void* library = nullptr;
    if (append_host_name(name, host_name) && !host_name.empty())
        library = dlopen(host_name.c_str(), load_mode);
    return library ? loaded(library) : failed(ERROR_MOD_NOT_FOUND);
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
        return failed(ERROR_INVALID_PARAMETER);
    const std::u16string complete = with_extension(path);
    if (const built_in_module* module = find_built_in(complete.c_str()))
        return loaded(const_cast<built_in_module*>(module));
    if (last_component(complete) == 0)
        return load_bare_name(complete, flags);
    std::string host_path;
    if (const DWORD code = find_library(complete, host_path))
        return failed(code);
    return load_file(host_path, flags);
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
        const auto found = modules.loads.find(module);
        if (found == modules.loads.end()) {
            SetLastError(ERROR_MOD_NOT_FOUND);
            return FALSE;
        }
        is_last = --found->second == 0;
        if (is_last)
            modules.loads.erase(found);
    }
    if (!is_built_in(module))
        dlclose(module);
    if (is_last)
        SetLastError(ERROR_SUCCESS);
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
