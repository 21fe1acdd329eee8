// T: is a drive that was made ready for tests, when ZU_TEST_DRIVE says so, or a definition for a directory under the
// temporary folder. A test has it for itself.
#include "support/scratch.h"

#include <windows.h>

#include <cstdlib>

namespace zu_test {

namespace fs = std::filesystem;

namespace {

const bool has_drive = std::getenv("ZU_TEST_DRIVE") != nullptr;

void empty_directory(const fs::path& directory) {
    std::error_code ignored;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(directory, ignored))
        SetFileAttributesW(entry.path().c_str(), FILE_ATTRIBUTE_NORMAL); // so that it can be removed
    for (const fs::directory_entry& entry : fs::directory_iterator(directory, ignored))
        fs::remove_all(entry.path(), ignored);
}

fs::path folder() {
    return fs::temp_directory_path() / ("zu-test-" + std::to_string(GetCurrentProcessId()));
}

} // namespace

scratch::scratch() {
    directory_ = L"T:\\";
    if (!has_drive) {
        must(GetDriveTypeW(L"T:\\") == DRIVE_NO_ROOT_DIR, "there is a drive", "T:");
        fs::create_directory(folder());
        must(DefineDosDeviceW(DDD_NO_BROADCAST_SYSTEM, L"T:", folder().c_str()), "DefineDosDevice", "T:");
    }
    empty_directory(directory_);
}

scratch::~scratch() {
    SetCurrentDirectoryW(L"C:\\"); // a test may have gone into it
    empty_directory(directory_);
    RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\zu_test");
    std::error_code ignored;
    if (!has_drive && DefineDosDeviceW(DDD_REMOVE_DEFINITION, L"T:", nullptr))
        fs::remove(folder(), ignored);
}

void scratch::add_to_registry(const std::string& text) const {
    const std::u16string units = wide("\uFEFFWindows Registry Editor Version 5.00\r\n\r\n" + text);
    write("new.reg", {reinterpret_cast<const char*>(units.data()), units.size() * sizeof units[0]});
    must(std::system("reg import T:\\new.reg >NUL 2>&1") == 0, "reg import", text);
}

} // namespace zu_test
