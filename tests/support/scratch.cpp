#include "support/scratch.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

namespace zu_test {

namespace fs = std::filesystem;

void must(bool condition, const char* what, const std::string& path) {
    if (condition)
        return;
    std::fprintf(stderr, "test set-up failed: %s: %s: %s\n", what, path.c_str(), std::strerror(errno));
    std::abort();
}

fs::path scratch::at(std::string_view relative) const {
    return relative.empty() ? directory_ : directory_ / fs::u8path(relative);
}

void scratch::write(std::string_view relative, std::string_view bytes) const {
    std::ofstream stream(at(relative), std::ios::binary);
    stream << bytes;
    stream.close();
    must(stream.good(), "write", std::string(relative));
}

std::string scratch::read(std::string_view relative) const {
    std::ifstream stream(at(relative), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

bool scratch::exists(std::string_view relative) const {
    std::error_code ignored;
    return fs::exists(fs::symlink_status(at(relative), ignored));
}

void scratch::make_directory(std::string_view relative) const {
    std::error_code failure;
    fs::create_directory(at(relative), failure);
    if (!failure)
        fs::permissions(at(relative), fs::perms::all, failure); // for other users, whatever the umask
    must(!failure, "mkdir", std::string(relative));
}

} // namespace zu_test
