// A walk down a tree that is to be removed, while others may write to it.
//
// Every step goes from the descriptor of a directory that was listed to an entry of it, and never through a link or from
// the root. So nothing outside the tree is reached, and a level costs the same at any depth. Only the lowest levels keep
// their descriptors: on the way back up the others are opened again as "..", and must be the directories they were.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <vector>

#include "platform/api/files.h"
#include "platform/core/error.h"
#include "platform/files/directory_scan.h"
#include "platform/files/held_item.h"
#include "platform/files/place.h"
#include "platform/files/removal.h"
#include "platform/files/same_file.h"

namespace platform {

namespace {

constexpr size_t most_open_levels = 32;

bool is_shortage(int error) {
    return error == EMFILE || error == ENFILE;
}

} // namespace

class tree_levels {
public:
    explicit tree_levels(const WCHAR* path);

    bool next();
    DWORD remove();
    int take(held_item& out) const { return out.take(directory(), name_.c_str(), AT_SYMLINK_NOFOLLOW); }

private:
    struct level {
        descriptor directory;
        struct stat status;
        std::string name;    // its name in the directory above
        std::string pending; // entries to come: a byte of type, the name, a zero
        size_t position = 0; // index in `pending`
        bool at_end = false; // `pending` holds the last entries
    };

    int directory() const { return levels_.back().directory.get(); }
    bool open(int at, const char* name, level& out) const;
    void read_block(level& of) const;
    void close(level& above) const;
    bool close_highest();
    bool take_entry();
    bool is_directory() const;
    bool enter();
    bool leave();

    std::vector<level> levels_;
    std::string name_; // the present entry of the lowest level
    unsigned char type_ = DT_UNKNOWN;
};

tree_levels::tree_levels(const WCHAR* path) {
    place where;
    if (where.set((std::u16string(path) + u'\\').c_str()) != ERROR_SUCCESS)
        return;
    level top; // a link is followed: it stands for the directory that the caller named
    top.directory =
        descriptor(where.attempt([](int at, const char* name) { return open_to_list(at, name); }));
    if (top.directory && fstat(top.directory.get(), &top.status) == 0)
        levels_.push_back(std::move(top));
}

bool tree_levels::open(int at, const char* name, level& out) const {
    out.directory = descriptor(open_to_list(at, name, O_NOFOLLOW));
    return out.directory && fstat(out.directory.get(), &out.status) == 0;
}

// Adds the next entries to those that are pending. A directory that cannot be read has no more.
void tree_levels::read_block(level& of) const {
    directory_reader reader(std::move(of.directory));
    of.at_end = !reader.fill() || reader.at_end();
    for (directory_reader::entry entry; reader.take(entry);)
        ((of.pending += static_cast<char>(entry.type)) += entry.name) += '\0';
    of.directory = reader.take_directory();
}

// Closes a level's directory, which is read to its end first: it could not be read on from the same entry later.
void tree_levels::close(level& above) const {
    while (!above.at_end)
        read_block(above);
    above.directory.reset();
}

// Closes the highest level that is open. False when only the lowest one is.
bool tree_levels::close_highest() {
    for (size_t i = 0; i + 1 < levels_.size(); ++i) {
        if (!levels_[i].directory)
            continue;
        close(levels_[i]);
        return true;
    }
    return false;
}

bool tree_levels::take_entry() {
    level& here = levels_.back();
    while (here.position == here.pending.size()) {
        if (here.at_end)
            return false;
        here.pending.clear();
        here.position = 0;
        read_block(here);
    }
    type_ = static_cast<unsigned char>(here.pending[here.position]);
    name_ = here.pending.c_str() + here.position + 1;
    here.position += name_.size() + 2;
    return true;
}

bool tree_levels::is_directory() const {
    struct stat status;
    if (type_ != DT_UNKNOWN)
        return type_ == DT_DIR;
    return fstatat(directory(), name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode);
}

bool tree_levels::enter() {
    level below;
    while (!open(directory(), name_.c_str(), below))
        if (!is_shortage(errno) || !close_highest())
            return false;
    if (levels_.size() >= most_open_levels)
        close(levels_[levels_.size() - most_open_levels]);
    below.name = std::move(name_);
    levels_.push_back(std::move(below));
    return true;
}

// Goes up to the directory that the lowest level is an entry of, which becomes the present one. False when there is none,
// or when it has been moved out of the tree: then nobody can say where it is, and the walk ends.
bool tree_levels::leave() {
    level left = std::move(levels_.back());
    levels_.pop_back();
    if (levels_.empty())
        return false;
    level& here = levels_.back();
    const struct stat before = here.status;
    if (!here.directory && (!open(left.directory.get(), "..", here) || !is_same(here.status, before))) {
        levels_.clear();
        return false;
    }
    name_ = std::move(left.name);
    type_ = DT_DIR;
    return true;
}

bool tree_levels::next() {
    while (!levels_.empty()) {
        if (!take_entry())
            return leave();
        if (!is_directory() || !enter())
            return true;
    }
    return false;
}

DWORD tree_levels::remove() {
    struct stat status = {};
    status.st_mode = S_IFREG;
    if (type_ != DT_REG && fstatat(directory(), name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return code_of_errno(errno);
    DWORD code;
    do {
        code = S_ISDIR(status.st_mode) ? remove_directory_entry(directory(), name_.c_str(), status)
                                       : delete_file_entry(directory(), name_.c_str(), status);
    } while (code == ERROR_TOO_MANY_OPEN_FILES && close_highest());
    return code;
}

tree_walk::tree_walk(const WCHAR* path) : levels_(std::make_unique<tree_levels>(path)) {}
tree_walk::~tree_walk() = default;

bool tree_walk::next() {
    return levels_->next();
}

BOOL tree_walk::remove() {
    return result_of(levels_->remove());
}

item_attributes::item_attributes(const tree_walk& walk) : item_(std::make_unique<held_item>()) {
    code_ = walk.levels_->take(*item_) == 0 ? ERROR_SUCCESS : code_of_errno(errno);
}

} // namespace platform
