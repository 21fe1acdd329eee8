// Changes a registry file line by line. Lines that are not understood stay byte for byte. The layer's own reader tells
// what the lines mean, and checks each change.
#pragma once

#include <map>
#include <optional>

#include "platform/core/descriptor.h"
#include "platform/system/registry.h"
#include "tools/tools.h"

namespace zu_tools {

// Keys with the spelling of the file, and the lines that make them.
struct registry_lines : platform::registry_listener {
    struct value {
        std::u16string name;
        std::vector<platform::line_range> lines;
    };
    struct key {
        std::u16string path;
        std::vector<platform::line_range> headings;
        std::map<std::u16string, value> values; // the key is the folded name
        size_t end = 0;                         // behind the last line that belongs to it
    };
    std::map<std::u16string, key> keys; // the key is the folded path

    void on_key(platform::wide_view path, bool removes, platform::line_range lines) override;
    void on_value(platform::wide_view name, bool removes, platform::line_range lines) override;

private:
    key* current_ = nullptr;
};

std::u16string folded_path(platform::wide_view path); // one backslash between the names, none at the end

class registry_text_edit {
public:
    // Fails for a text that is no registry file, so that nothing else is ever overwritten.
    registry_text_edit(std::string bytes, const std::string& path);

    const std::string& bytes() const { return bytes_; }
    const platform::registry_node& roots() const { return roots_; }
    const registry_lines& lines() const { return lines_; }

    void set(const std::u16string& key, const std::u16string& name, const platform::registry_value& value);
    void add_key(const std::u16string& key);
    void remove_value(const std::u16string& key, const std::u16string& name);
    void remove_key(const std::u16string& key);
    // Writes a line that removes a value or key which another file has.
    void hide(const std::u16string& key, const std::optional<std::u16string>& name);

private:
    void read();
    void replace(platform::line_range lines, const std::u16string& text);
    void insert_into(const std::u16string& key, const std::u16string& text);
    std::string encoded(const std::u16string& text) const;
    std::u16string line_of(const std::u16string& name, const platform::registry_value& value) const;

    const std::string path_;
    std::string bytes_;
    std::vector<size_t> starts_; // the starts of all lines, and the end of the text
    bool is_older_ = false;
    platform::registry_node roots_;
    registry_lines lines_;
};

// The file under its lock: a second writer waits until the first is done. A reader sees the old one or the new.
class registry_file {
public:
    enum class use { read, write };
    registry_file(std::string path, use how);

    registry_text_edit& text() { return *text_; }
    void replace(); // writes the text to a new file, flushes it, and renames it to this one

private:
    std::string path_;
    platform::descriptor lock_;
    mode_t mode_ = 0644;
    std::optional<registry_text_edit> text_;
};

} // namespace zu_tools
