// A log that goes to a file, for a test.
#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/network.h"
#include "support/scratch.h"
#include "zu/zu.h"

namespace zu_test {

using texts = std::vector<std::string>;

// The library started, writing nothing but to a file in a directory of the test's own.
struct file_log {
    scratch place;
    std::u16string name = place.drive_path(u"app.log");

    started_library started;

    file_log() { ZU_log_set_output(ZU_LOG_OUT_FILE); }
    void set(uint32_t max_size, uint32_t generations, uint32_t encoding = ZU_ENCODING_UTF8,
             ZU_log_file_callback before = nullptr, ZU_log_file_callback after = nullptr) const {
        ZU_log_set_log_file_ex(name.c_str(), 0, encoding, max_size, generations, before, after);
    }
    static std::string generation(int number) {
        return number == 0 ? "app.log" : "app.log." + std::to_string(number);
    }
    static bool write(const std::u16string& message) {
        return ZU_log_write(ZU_LOG_ALERT, u"%s", message.c_str()) == 0x10;
    }

    // The messages of a file's lines, each checked to be whole.
    texts messages(const std::string& file = "app.log") const {
        texts found;
        std::istringstream text(place.read(file));
        for (std::string line; std::getline(text, line);) {
            const size_t message = line.find("|O:Windows| ") + 12;
            EXPECT_EQ(line.substr(0, 3) + line.back(), "|D:\r") << "torn: " << line;
            EXPECT_GT(message, 12u) << "torn: " << line;
            found.push_back(line.substr(message, line.size() - message - 1));
        }
        return found;
    }
};

} // namespace zu_test
