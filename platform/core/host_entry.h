// Inside the layer: an entry of the host's data bases of users and groups, through a re-entrant call.
#pragma once

#include <cerrno>
#include <vector>

namespace platform {

// Makes the call with as much storage as it asks for. False with errno 0 if there is no such entry, and with another
// errno if the look-up failed. The entry's texts lie in the storage.
template <class Entry, class Call>
bool look_up(Entry& entry, std::vector<char>& storage, Call call) {
    storage.resize(1024);
    for (;;) {
        Entry* found = nullptr;
        const int error = call(&entry, storage.data(), storage.size(), &found);
        if (error != ERANGE) {
            const bool is_missing =
                error == 0 || error == ENOENT || error == ESRCH || error == EBADF || error == EPERM;
            errno = is_missing ? 0 : error;
            return found != nullptr;
        }
        storage.resize(storage.size() * 2);
    }
}

} // namespace platform
