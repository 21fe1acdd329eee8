#include "single.h"

#include "failed.h"
#include "text.h"

single_instance::single_instance(const std::string& name) {
    if (name.empty())
        return;
    lock_ = ZU_lock_process_create(wide(name).c_str());
    if (!lock_)
        fail("--single " + name);
    is_held_ = ZU_lock_process_lock_timeout(lock_, 0);
    // Locking also returns false for a lock that was taken over from a killed owner. Only an owner can unlock.
    if (!is_held_ && ZU_lock_process_unlock(lock_))
        is_held_ = ZU_lock_process_lock_timeout(lock_, 0);
}

single_instance::~single_instance() {
    if (lock_ && is_held_)
        ZU_lock_process_unlock(lock_);
    ZU_lock_process_close(lock_);
}
