// Users of the host for a test: made by root, removed at the end.
#pragma once

#include <string>

namespace zu_test {

class temporary_user {
public:
    // An account that may log in, with that password; an administrator is in the first group that makes them here.
    explicit temporary_user(const std::string& password, bool is_administrator = false);
    ~temporary_user();
    temporary_user(const temporary_user&) = delete;
    temporary_user& operator=(const temporary_user&) = delete;

    bool made() const { return made_; } // false without root, the tools, or PAM for this word size
    std::u16string name() const { return {name_.begin(), name_.end()}; }
    bool change(const std::string& options) const; // as usermod takes them

private:
    std::string name_;
    bool made_;
};

} // namespace zu_test
