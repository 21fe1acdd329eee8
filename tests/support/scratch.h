// A directory of a test's own, which the library knows as drive T:.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "support/text.h"

namespace zu_test {

// Names are UTF-8, relative to the directory, with slashes.
class scratch {
public:
    scratch();
    ~scratch(); // removes all that is in it
    scratch(const scratch&) = delete;
    scratch& operator=(const scratch&) = delete;

    // `relative` has backslashes; empty gives the drive's root.
    std::u16string drive_path(std::u16string_view relative) const {
        return u"T:\\" + std::u16string(relative);
    }
    std::u16string long_path(std::u16string_view relative) const { return u"\\\\?\\" + drive_path(relative); }
    std::filesystem::path at(std::string_view relative) const; // for the C++ library

    void write(std::string_view relative, std::string_view bytes) const; // makes or replaces the file
    std::string read(std::string_view relative) const;                   // empty when there is none
    bool exists(std::string_view relative) const;                        // links are not followed
    void make_directory(std::string_view relative) const;

    // Reads a text in the form of the registry's files in. The key Software\zu_test of the current user goes at the end.
    void add_to_registry(const std::string& text) const;

protected:
    std::filesystem::path directory_;

private:
    std::string previous_host_;
};

struct scratch_test : testing::Test {
    const scratch place;
};

// Ends the program when the preparation of a test has failed.
void must(bool condition, const char* what, const std::string& path);

} // namespace zu_test
