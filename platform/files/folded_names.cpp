// Names that large directories hold.
#include "platform/files/folded_names.h"

#include <linux/magic.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <iterator>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "platform/core/descriptor.h"
#include "platform/core/retry.h"
#include "platform/files/name_map.h"
#include "platform/text/case_fold.h"

namespace platform {

namespace {

constexpr size_t most_directories = 4;
constexpr size_t most_names = 512 * 1024; // in one directory; their hashes take 8 MiB

constexpr uint32_t added = IN_CREATE | IN_MOVED_TO;
constexpr uint32_t removed = IN_DELETE | IN_MOVED_FROM;

// File systems that change through this host alone.
constexpr uint32_t local_file_systems[] = {EXT4_SUPER_MAGIC, XFS_SUPER_MAGIC,  BTRFS_SUPER_MAGIC,
                                           TMPFS_MAGIC,      F2FS_SUPER_MAGIC, OVERLAYFS_SUPER_MAGIC};

// A bag of hashes: each is in it as often as it was added. The table is an open one: a hash lies in the slot of its low
// bits, or in a later slot with no empty one in between.
class hash_bag {
public:
    size_t size() const { return size_; }

    bool holds(uint64_t hash) const {
        hash |= hash == empty;
        return slot_count_ != 0 && slots_[slot_of(hash)] == hash;
    }

    // False when there is no memory for it.
    bool add(uint64_t hash) {
        hash |= hash == empty;
        if (2 * size_ >= slot_count_ && !grow())
            return false;
        put(hash);
        return true;
    }

    // Takes a hash out once. Nothing happens when it is not in.
    void remove(uint64_t hash) {
        hash |= hash == empty;
        if (!holds(hash))
            return;
        size_t hole = slot_of(hash);
        --size_;
        // Each hash that follows the hole moves into it, unless it would lie in front of its own slot then.
        for (size_t at = next(hole); slots_[at] != empty; at = next(at)) {
            if (((at - slots_[at]) & (slot_count_ - 1)) >= ((at - hole) & (slot_count_ - 1))) {
                slots_[hole] = slots_[at];
                hole = at;
            }
        }
        slots_[hole] = empty;
    }

private:
    static constexpr uint64_t empty = 0;

    size_t next(size_t at) const { return (at + 1) & (slot_count_ - 1); }

    // The slot of the hash, or the empty one where the search for it ends.
    size_t slot_of(uint64_t hash) const {
        size_t at = hash & (slot_count_ - 1);
        while (slots_[at] != empty && slots_[at] != hash)
            at = next(at);
        return at;
    }

    void put(uint64_t hash) {
        size_t at = hash & (slot_count_ - 1);
        while (slots_[at] != empty)
            at = next(at);
        slots_[at] = hash;
        ++size_;
    }

    bool grow() {
        const size_t old_count = slot_count_, count = old_count == 0 ? 8192 : 2 * old_count;
        std::unique_ptr<uint64_t[]> old = std::move(slots_);
        slots_.reset(new (std::nothrow) uint64_t[count]());
        if (!slots_) {
            slots_ = std::move(old);
            return false;
        }
        slot_count_ = count;
        size_ = 0;
        for (size_t i = 0; i < old_count; ++i)
            if (old[i] != empty)
                put(old[i]);
        return true;
    }

    std::unique_ptr<uint64_t[]> slots_;
    size_t slot_count_ = 0; // a power of 2
    size_t size_ = 0;
};

} // namespace

class name_watcher;

struct watched_directory {
    watched_directory(name_watcher& by, const struct stat& status, int number, uint64_t use)
        : owner(by), device(status.st_dev), inode(status.st_ino), watch(number), last_use(use) {}

    name_watcher& owner;
    const dev_t device;
    const ino_t inode;
    const int watch;
    // All names are in. Until then the hashes of removed names stay, since the reading may not have met those names.
    bool is_whole = false;
    bool is_lost = false; // it is not watched any more
    uint64_t last_use;
    hash_bag names;
};

// The directories that one process watches.
class name_watcher {
public:
    bool belongs_to_this_process() const { return process_ == getpid(); }

    bool lacks(int directory, uint64_t hash) {
        struct stat status;
        if (fstat(directory, &status) != 0)
            return false;
        const std::lock_guard held(lock_);
        if (!find(status))
            return false;
        take_notifications(); // one of them may end the watch
        const std::shared_ptr<watched_directory> known = find(status);
        if (!known || !known->is_whole)
            return false;
        known->last_use = ++uses_;
        return !known->names.holds(hash);
    }

    std::shared_ptr<watched_directory> begin(int directory) {
        struct stat status;
        if (fstat(directory, &status) != 0 || !is_local(directory))
            return nullptr;
        const std::lock_guard held(lock_);
        if (find(status))
            return nullptr;
        if (!queue_)
            queue_ = descriptor(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
        if (!queue_)
            return nullptr;
        if (directories_.size() == most_directories)
            drop(**std::min_element(
                directories_.begin(), directories_.end(),
                [](const auto& one, const auto& other) { return one->last_use < other->last_use; }));
        const std::string path = "/proc/self/fd/" + std::to_string(directory);
        const int watch = inotify_add_watch(queue_.get(), path.c_str(), added | removed | IN_ONLYDIR);
        if (watch < 0)
            return nullptr;
        directories_.push_back(std::make_shared<watched_directory>(*this, status, watch, ++uses_));
        return directories_.back();
    }

    void add(const std::shared_ptr<watched_directory>& directory, uint64_t hash) {
        const std::lock_guard held(lock_);
        add_name(directory, hash);
    }

    void finish(const std::shared_ptr<watched_directory>& directory) {
        const std::lock_guard held(lock_);
        // A name that was removed while the directory was read may not have been added: taking its hash out could take
        // out that of another name. So such hashes stay. A hash too many costs a look, and no more.
        take_notifications();
        directory->is_whole = true;
    }

    void give_up(const std::shared_ptr<watched_directory>& directory) {
        const std::lock_guard held(lock_);
        drop(*directory);
    }

private:
    static bool is_local(int directory) {
        struct statfs system;
        return fstatfs(directory, &system) == 0
               && std::find(std::begin(local_file_systems), std::end(local_file_systems),
                            static_cast<uint32_t>(system.f_type))
                      != std::end(local_file_systems);
    }

    std::shared_ptr<watched_directory> find(const struct stat& status) const {
        for (const std::shared_ptr<watched_directory>& known : directories_)
            if (known->inode == status.st_ino && known->device == status.st_dev)
                return known;
        return nullptr;
    }

    void add_name(const std::shared_ptr<watched_directory>& directory, uint64_t hash) {
        if (!directory->is_lost && (directory->names.size() == most_names || !directory->names.add(hash)))
            drop(*directory);
    }

    // The record may be freed by this: the list's pointer to it may be the last one.
    void drop(watched_directory& directory) {
        if (directory.is_lost)
            return;
        inotify_rm_watch(queue_.get(), directory.watch);
        forget(directory);
    }

    void forget(watched_directory& directory) {
        directory.is_lost = true;
        directory.names = {};
        std::erase_if(directories_, [&](const auto& known) { return known.get() == &directory; });
    }

    void take_notifications() {
        alignas(inotify_event) char block[16 * 1024];
        ssize_t size = 0;
        while (!directories_.empty()
               && (size = retried([&] { return read(queue_.get(), block, sizeof block); })) > 0) {
            for (ssize_t at = 0; at < size;) {
                const auto* event = reinterpret_cast<const inotify_event*>(block + at);
                at += static_cast<ssize_t>(sizeof *event + event->len);
                take(*event);
            }
        }
        if (!directories_.empty() && (size == 0 || errno != EAGAIN))
            drop_all();
    }

    void take(const inotify_event& event) {
        if (event.mask & IN_Q_OVERFLOW) {
            drop_all();
            return;
        }
        const auto known = std::find_if(directories_.begin(), directories_.end(),
                                        [&](const auto& row) { return row->watch == event.wd; });
        if (known == directories_.end())
            return;
        if (event.mask & IN_IGNORED)
            forget(**known);
        else if (event.mask & added)
            add_name(*known, folded_hash(event.name));
        else if ((event.mask & removed) && (*known)->is_whole)
            (*known)->names.remove(folded_hash(event.name));
    }

    void drop_all() {
        while (!directories_.empty())
            drop(*directories_.back());
        queue_.reset();
    }

    const pid_t process_ = getpid();
    std::mutex lock_;
    descriptor queue_;
    std::vector<std::shared_ptr<watched_directory>> directories_;
    uint64_t uses_ = 0;
};

namespace {

std::atomic<name_watcher*> present_watcher{nullptr};

// The watcher of this process; null when nothing is watched yet. A forked child does not use its parent's: the two share
// the queue, and the lock may be held by a thread that the child does not have.
name_watcher* own_watcher() {
    name_watcher* const known = present_watcher.load(std::memory_order_acquire);
    return known && known->belongs_to_this_process() ? known : nullptr;
}

name_watcher& make_own_watcher() {
    name_watcher* known = present_watcher.load(std::memory_order_acquire);
    if (known && known->belongs_to_this_process())
        return *known;
    auto* const fresh = new name_watcher;
    if (present_watcher.compare_exchange_strong(known, fresh, std::memory_order_acq_rel))
        return *fresh;
    delete fresh; // another thread was faster
    return *known;
}

} // namespace

uint64_t folded_hash(std::string_view name) {
    uint64_t hash = 0;
    while (!name.empty()) {
        hash = (hash ^ fold_case(take_character(name))) * 0x9E3779B97F4A7C15u;
        hash ^= hash >> 32;
    }
    return hash;
}

bool is_known_to_lack(int directory, uint64_t hash) {
    name_watcher* const mine = own_watcher();
    return mine && mine->lacks(directory, hash);
}

bool folded_names_reading::begin(int directory) {
    target_ = make_own_watcher().begin(directory);
    return target_ != nullptr;
}

void folded_names_reading::add(std::string_view name) {
    if (target_)
        target_->owner.add(target_, folded_hash(name));
}

void folded_names_reading::finish() {
    if (target_)
        target_->owner.finish(target_);
    target_.reset();
}

folded_names_reading::~folded_names_reading() {
    if (target_)
        target_->owner.give_up(target_);
}

} // namespace platform
