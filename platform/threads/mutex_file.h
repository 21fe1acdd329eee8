// Inside the layer: the file that a named mutex shares between processes.
//
// One file per name under /dev/shm. Ownership is an open-file-description lock on one of its bytes, so that it ends
// with the process, whatever kills it. A word of the text says "held" while it is held: a process that gets the lock
// and finds that set knows that the owner died; those that wait sleep on it. Every process that has the mutex open
// holds a shared lock on a second byte; a process that finds that byte free is alone, and sets the file right or
// removes it. A third byte is locked while the file is made, checked or removed, and a fourth by the process that is
// next to get the lock. Nothing in the file is trusted further than the rights on it reach.
#pragma once

#include <string>
#include <vector>

#include "platform/core/descriptor.h"
#include "platform/core/futex.h"

namespace platform {

// The contents of a lock's file, for a user who may read it.
struct mutex_facts {
    std::u16string name; // empty where the file could not be read
    std::string path;
    uid_t user = 0;
    bool for_everyone = false;
    bool is_left_behind = false; // nobody has it open: its processes were killed
    uint32_t owner = 0;          // the thread that holds it, or has died holding it; 0 for none
};

class mutex_file {
public:
    enum class taken { yes, abandoned, too_late, failed };

    // Opens the file of a name, or creates it. 0 or the code: 1460 (ERROR_TIMEOUT) while another process keeps the file
    // from being looked at.
    DWORD open(const std::u16string& name, bool may_create, bool for_everyone, bool& existed);

    // Takes the lock. `failed` comes with the code set.
    taken lock(const deadline& until);
    void unlock();
    void abandon(); // gives the lock up as if the owner had died

    // Called in a forked child. Gives up the descriptor that it shares with its parent, and so the parent's locks, and
    // opens the file as a process of its own. When that fails, every later call fails.
    void reopen(const std::u16string& name);

    // Ends the use of the file; the last one removes it. A lock that is held is given up as if its owner had died.
    void close();

    // At the end of the process: removes the file if no other process has it, and leaves it usable.
    void remove_name(const deadline& limit);

    // Removes the files that killed processes of this user have left behind, of any user when it is root.
    static void sweep();

    // Lists the locks of this machine. 0 or a code.
    static DWORD list(std::vector<mutex_facts>& out);

private:
    class own_turn;

    DWORD open_once(const std::u16string& name, bool may_create, bool for_everyone, const deadline& limit,
                    bool& existed, bool& again);
    DWORD check_or_write(const std::u16string& name, bool may_create, bool for_everyone, bool& existed,
                         bool& again);
    bool begin_change(const deadline& limit) const;
    void end_change() const;
    bool is_still_named() const;
    bool remove_if_unused() const;
    bool take_turn(const deadline& until) const;
    void pass_turn() const;
    void* word(off_t at) const;
    bool read_word(off_t at, uint32_t& value) const;
    bool write_word(off_t at, uint32_t value) const;
    bool sleep_on_word(off_t at, uint32_t value, const deadline& until) const;
    bool mark_held() const;
    bool sleep_while_held(const deadline& until) const;

    std::string path_;
    descriptor file_;
    void* mapping_ = nullptr; // the two words of the file, for the kernel's futex calls alone
    bool owes_turn_ = false;  // the last unlock woke a sleeper; guarded by the gate of the process
};

} // namespace platform
