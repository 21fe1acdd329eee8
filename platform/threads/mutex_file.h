// Inside this folder: the file that a named mutex shares between processes.
//
// One file per name under /dev/shm. Ownership is an open-file-description lock on one of its bytes, so that it ends
// with the process, whatever kills it. A word of the text says "held" while it is held: who gets the lock and finds
// that set knows that the owner died; who may wait for a while only sleeps on it. Every process that has the mutex
// open holds a shared lock on a third byte; who finds that byte free is alone, and sets the file right or removes it.
// A fourth byte is locked while the file is made, checked or removed. Nothing in the file is trusted further than the
// rights on it reach, and it is read and written by system calls alone.
#pragma once

#include <string>

#include "platform/core/descriptor.h"
#include "platform/core/futex.h"

namespace platform {

class mutex_file {
public:
    enum class taken { yes, abandoned, too_late, failed };

    // Opens the file of a name, or creates it. 0 or the code.
    DWORD open(const std::u16string& name, bool may_create, bool for_everyone, bool& existed);

    // Takes the lock; failed: with the code set.
    taken lock(const deadline& until);
    void unlock();
    void abandon(); // gives the lock up as if the owner had died

    // In a forked child: gives up what it shares with its parent, the parent's lock with it, and opens the file as the
    // process of its own that it is. Where that fails, so does every call from here on.
    void reopen(const std::u16string& name);

    // Ends the use of the file; the last one removes it. A lock that is held is given up as if its owner had died.
    void close();

private:
    DWORD open_once(const std::u16string& name, bool may_create, bool for_everyone, bool& existed,
                    bool& again);
    DWORD check_or_write(const std::u16string& name, bool may_create, bool for_everyone, bool& existed,
                         bool& again);
    bool is_still_named() const;
    void* word() const;
    bool mark_held();
    bool sleep_while_held(const deadline& until);

    std::string path_;
    descriptor file_;
    void* mapping_ = nullptr; // of the word, for the kernel alone
};

} // namespace platform
