// The guard against a second instance.
#pragma once

#include <string>

#include "zu/zu.h"

// Holds the process lock of a name until the destructor, unless another taskd holds it. Without a name it needs no lock,
// and counts as holding one. One thread must make and destroy it. Throws `failed` if the lock cannot be made.
class single_instance {
public:
    explicit single_instance(const std::string& name);
    ~single_instance();
    single_instance(const single_instance&) = delete;
    single_instance& operator=(const single_instance&) = delete;

    bool is_held() const { return is_held_; }

private:
    ZU_lock_process lock_ = nullptr;
    bool is_held_ = true;
};
