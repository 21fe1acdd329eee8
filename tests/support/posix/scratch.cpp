// T: is a directory under the temporary folder, in a host directory (ZU_HOST) of its own where C: is /.
#include "support/scratch.h"

#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace zu_test {

namespace {

// Directories that a test closed are opened again first, on the way down.
int open_directory(const char* path, const struct stat*, int kind, struct FTW*) {
    if (kind == FTW_D || kind == FTW_DNR)
        chmod(path, 0777);
    return 0;
}

} // namespace

// Open to every user, so that children of another user can work in it.
scratch::scratch() {
    std::string top = std::filesystem::temp_directory_path().string() + "/zu-test-XXXXXX";
    must(mkdtemp(top.data()) != nullptr, "mkdtemp", top);
    must(chmod(top.c_str(), 0755) == 0, "chmod", top);
    directory_ = top;
    for (const char* part : {"files", "host", "host/drives", "host/drives/unc"})
        make_directory(part);
    directory_ /= "files";
    std::filesystem::create_directory_symlink("/", top + "/host/drives/c:");
    std::filesystem::create_directory_symlink(directory_, top + "/host/drives/t:");
    if (const char* previous = std::getenv("ZU_HOST"))
        previous_host_ = previous;
    setenv("ZU_HOST", (top + "/host").c_str(), 1);
}

scratch::~scratch() {
    unsetenv("ZU_HOST");
    if (!previous_host_.empty())
        setenv("ZU_HOST", previous_host_.c_str(), 1);
    std::error_code ignored;
    std::filesystem::current_path("/", ignored); // a test may have gone into it
    const std::filesystem::path top = directory_.parent_path();
    nftw(top.c_str(), open_directory, 16, FTW_PHYS);
    std::filesystem::remove_all(top, ignored); // however long its paths are
}

// The user has no file of its own.
void scratch::add_to_registry(const std::string& text) const {
    setenv("HOME", directory_.c_str(), 1);
    write("../host/new", read("../host/registry.reg") + text);
    std::filesystem::rename(at("../host/new"), at("../host/registry.reg"));
}

} // namespace zu_test
