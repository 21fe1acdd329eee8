// Services as directories. Each appears and disappears as a whole, also if the process dies on the way.
#include "platform/services/service_directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <mutex>
#include <optional>

#include "platform/core/error.h"
#include "platform/core/host_dir.h"
#include "platform/core/retry.h"
#include "platform/services/dependencies.h"
#include "platform/services/other_unit.h"
#include "platform/services/service_lock.h"
#include "platform/services/service_protocol.h"
#include "platform/services/service_run.h"
#include "platform/services/service_status.h"
#include "platform/services/service_unit.h"
#include "platform/services/systemd.h"
#include "platform/services/unit_state.h"

namespace platform {

namespace {

constexpr const char* new_name = ".new";
constexpr const char* gone_name = ".gone";
constexpr const char* record_name = "record";

std::string services_path() {
    return in_host_directory("services");
}

descriptor open_services(const std::string& path) {
    return descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
}

descriptor open_directory_of(int all, const std::string& name) {
    return descriptor(openat(all, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
}

// The code for a failed search: the service does not exist, or the search itself failed.
DWORD code_of_search(int error) {
    return error == ENOENT || error == ENOTDIR ? ERROR_SERVICE_DOES_NOT_EXIST : code_of_errno(error);
}

// Locks a service's record: for reading by a process that has the service open, for writing by one that removes it. The
// lock belongs to the open file description, so each handle of a process counts for itself.
bool lock_record(int record, short type) {
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    return fcntl(record, F_OFD_SETLK, &lock) == 0;
}

bool others_have_it_open(int record) {
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return fcntl(record, F_OFD_GETLK, &lock) != 0 || lock.l_type != F_UNLCK;
}

// Reads a whole file of a directory; false with errno.
bool read_whole(int directory, const char* name, std::string& out) {
    const descriptor file(openat(directory, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    for (char block[4096];;) {
        const ssize_t size = file ? retried([&] { return read(file.get(), block, sizeof block); }) : -1;
        if (size <= 0)
            return size == 0;
        out.append(block, static_cast<size_t>(size));
    }
}

bool write_whole(int directory, const char* name, std::string_view text) {
    const descriptor file(openat(directory, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!file)
        return false;
    while (!text.empty()) {
        const ssize_t size = retried([&] { return write(file.get(), text.data(), text.size()); });
        if (size < 0)
            return false;
        text.remove_prefix(static_cast<size_t>(size));
    }
    return fchmod(file.get(), 0644) == 0 && fsync(file.get()) == 0;
}

// The names of all entries but "." and "..". False with errno.
bool list(int directory, std::vector<std::string>& out) {
    descriptor own(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    DIR* const stream = own ? fdopendir(own.get()) : nullptr;
    if (!stream)
        return false;
    own.release(); // the stream closes it
    errno = 0;
    while (const dirent* entry = readdir(stream)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            out.emplace_back(entry->d_name);
    }
    const int error = errno;
    closedir(stream);
    errno = error;
    return error == 0;
}

// Removes a service's directory, which holds nothing but files.
void remove_directory(int all, const char* name) {
    const descriptor directory = open_directory_of(all, name);
    std::vector<std::string> files;
    if (!directory || !list(directory.get(), files))
        return;
    for (const std::string& file : files)
        unlinkat(directory.get(), file.c_str(), 0);
    unlinkat(all, name, AT_REMOVEDIR);
}

// Removes a service, which disappears as a whole. False with errno.
bool take_out(int all, const char* name) {
    remove_directory(all, gone_name); // left there by a removal that was cut short
    if (renameat(all, name, all, gone_name) != 0)
        return false;
    remove_directory(all, gone_name);
    return true;
}

// Makes the directories of a path that are missing; false with errno. The umask does not count: everybody may read them,
// since anybody may ask for a service's state.
bool make_directories(const std::string& path) {
    for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string part = path.substr(0, end);
        const bool is_made = mkdir(part.c_str(), 0755) == 0;
        if (is_made ? chmod(part.c_str(), 0755) != 0 : errno != EEXIST)
            return false;
        if (end == std::string::npos)
            return true;
    }
}

// The nearest directory on the way to a path that exists.
std::string existing_part(std::string path) {
    while (path.size() > 1 && access(path.c_str(), F_OK) != 0 && errno == ENOENT)
        path.erase(std::max<size_t>(1, path.rfind('/')));
    return path;
}

class directory_service final : public installed_service {
public:
    directory_service(const std::string& path, descriptor directory, descriptor record_file,
                      service_record record)
        : path_(path), directory_(std::move(directory)), record_file_(std::move(record_file)),
          record_(std::move(record)) {}

    ~directory_service() override {
        record_file_.reset();
        if (is_marked())
            remove_if_unused(path_, directory_name_of(record_.name));
    }

    const service_record& record() const override { return record_; }

    std::string unit() const override { return unit_of(record_.name); }

    bool may_be_changed() const override {
        return faccessat(directory_.get(), ".", W_OK | X_OK, AT_EACCESS) == 0;
    }

    bool is_marked() const override { return has_mark(directory_.get(), deleted_mark); }

    DWORD mark() override {
        if (set_mark(directory_.get(), deleted_mark))
            return ERROR_SUCCESS;
        return errno == EEXIST ? ERROR_SERVICE_MARKED_FOR_DELETE : code_of_errno(errno);
    }

    DWORD status(SERVICE_STATUS& out) override {
        const std::lock_guard guard(watch_lock_);
        service_life life;
        const DWORD code = watch_.look(directory_.get(), life);
        if (code != ERROR_SUCCESS)
            return code;
        out = status_of(record_, life);
        return record_.is_unit && !life.is_alive && may_be_up(directory_.get(), unit()) ? ask_manager(out)
                                                                                        : ERROR_SUCCESS;
    }

    DWORD start() override {
        return record_.is_unit ? start_unit(directory_.get(), record_)
                               : start_service(directory_.get(), record_);
    }

    DWORD stop() override {
        return record_.is_unit ? stop_unit(directory_.get(), record_) : stop_service(directory_.get());
    }

    DWORD finish_off() override { return finish_off_service(directory_.get()); }

private:
    // The manager's own view of the service, unless that is stopped as well.
    DWORD ask_manager(SERVICE_STATUS& out) {
        if (!unit_watch_)
            unit_watch_.emplace(is_of_users_manager(directory_.get()), unit());
        SERVICE_STATUS found;
        const DWORD code = unit_watch_->look(found);
        found.dwServiceType = record_.type;
        if (code == ERROR_SUCCESS && found.dwCurrentState != SERVICE_STOPPED)
            out = found;
        return code;
    }

    std::string path_; // the directory of all services
    descriptor directory_;
    descriptor record_file_;
    service_record record_;
    std::mutex watch_lock_;
    status_watch watch_;
    std::optional<unit_watch> unit_watch_; // once the manager has been asked
};

// Whether nothing of a service lives. False also if that cannot be told.
bool nothing_lives(int directory) {
    service_life life;
    return status_watch().look(directory, life) == ERROR_SUCCESS && !life.is_alive;
}

// Removes a marked service of which nothing lives, and that nobody has open or starts. The caller holds the lock of all
// services. A service that nobody has open cannot be started anew, but a helper may still be about to start it.
bool remove_unused(int all, const std::string& name) {
    const descriptor directory = open_directory_of(all, name);
    const descriptor record(openat(directory.get(), record_name, O_RDWR | O_CLOEXEC | O_NOFOLLOW));
    service_record found;
    const DWORD code = record ? read_service(directory.get(), found) : code_of_errno(errno);
    const bool is_known =
        code == ERROR_SUCCESS || code == ERROR_INVALID_DATA; // even a damaged one is removed
    if (!is_known || !has_mark(directory.get(), deleted_mark) || !lock_record(record.get(), F_WRLCK)
        || service_lock::is_held(directory.get(), start_lock) || !nothing_lives(directory.get()))
        return false;
    const bool starts_again = has_mark(directory.get(), restarts_mark);
    const bool for_user = is_of_users_manager(directory.get());
    if (!take_out(all, name.c_str()))
        return false;
    if (found.is_unit) {
        if (starts_again)
            run_systemctl(for_user, {"stop", "--no-block", "--", unit_of(found.name)});
        run_systemctl(for_user, {"disable", "--", unit_of(found.name)});
        run_systemctl(for_user, {"reset-failed", "--", unit_of(found.name)});
    }
    return true;
}

// Reads what the administrator has decided about the manager of services; empty for nothing.
DWORD read_decision(const std::string& path, std::string& word) {
    if (!read_whole(AT_FDCWD, (path + "/.manager").c_str(), word) && errno != ENOENT && errno != ENOTDIR)
        return code_of_errno(errno);
    word = word.substr(0, word.find_last_not_of(" \n") + 1);
    return word.empty() || word == "helper" || word == "systemd" ? ERROR_SUCCESS : ERROR_INVALID_DATA;
}

// Decides whether the host's manager runs new services.
DWORD choose_manager(const std::string& path, bool& are_units) {
    std::string word;
    const DWORD code = read_decision(path, word);
    are_units = word == "systemd" || (word.empty() && prefers_units());
    return code;
}

// Finds a unit of the machine that others wrote. It is a service where those of the machine are units. 1060 for none.
DWORD find_other_unit(const std::string& path, wide_view name, unit_file& out) {
    std::string word;
    const DWORD code = read_decision(path, word);
    if (code != ERROR_SUCCESS)
        return code;
    const bool are_seen = word == "systemd" || (word.empty() && runs_this_machine());
    return are_seen ? find_unit_file(name, out) : ERROR_SERVICE_DOES_NOT_EXIST;
}

// Whether a service can be recorded under its names, and beside those that it depends on.
DWORD check_names(service_manager& manager, const std::string& path, int all, const service_record& record) {
    const std::string name = directory_name_of(record.name);
    if (const descriptor same = open_directory_of(all, name)) {
        if (!has_mark(same.get(), deleted_mark))
            return ERROR_SERVICE_EXISTS;
        if (!remove_unused(all, name))
            return ERROR_SERVICE_MARKED_FOR_DELETE;
    } else if (errno != ENOENT) {
        return code_of_errno(errno);
    }
    unit_file found;
    if (const DWORD code = find_other_unit(path, record.name, found); code != ERROR_SERVICE_DOES_NOT_EXIST)
        return code == ERROR_SUCCESS ? ERROR_SERVICE_EXISTS : code;
    std::vector<service_record> others;
    if (const DWORD code = manager.all(others); code != ERROR_SUCCESS)
        return code;
    for (const service_record& other : others) {
        if (same_service_name(other.display_name, record.display_name)
            || same_service_name(other.name, record.display_name))
            return ERROR_DUPLICATE_SERVICE_NAME;
    }
    return check_for_circle(manager, record);
}

// Writes a service's directory under another name, and renames it when it is whole. False with errno.
bool write_service(int all, const service_record& record) {
    remove_directory(all, new_name); // left there by an installation that was cut short
    if (mkdirat(all, new_name, 0755) != 0)
        return false;
    const descriptor directory = open_directory_of(all, new_name);
    return directory && fchmod(directory.get(), 0755) == 0
           && write_whole(directory.get(), record_name, text_of(record)) && fsync(directory.get()) == 0
           && renameat(all, new_name, all, directory_name_of(record.name).c_str()) == 0;
}

class directory_manager final : public service_manager {
public:
    bool may_create() const override {
        return faccessat(AT_FDCWD, existing_part(services_path()).c_str(), W_OK | X_OK, AT_EACCESS) == 0;
    }

    DWORD installs_units(bool& out) override { return choose_manager(services_path(), out); }

    DWORD open(wide_view name, std::unique_ptr<installed_service>& out) override {
        const std::string path = services_path();
        DWORD code = open_own(path, name, out);
        unit_file other;
        if (code == ERROR_SERVICE_DOES_NOT_EXIST)
            code = find_other_unit(path, name, other);
        if (!other.unit.empty())
            out = service_of_unit(other);
        return code;
    }

    DWORD find(wide_view name, service_record& out) override {
        const descriptor directory =
            open_directory_of(AT_FDCWD, services_path() + '/' + directory_name_of(name));
        const DWORD code = directory ? read_service(directory.get(), out) : code_of_search(errno);
        if (code != ERROR_SUCCESS)
            return code;
        return same_service_name(out.name, name) ? ERROR_SUCCESS : ERROR_SERVICE_DOES_NOT_EXIST;
    }

    DWORD all(std::vector<service_record>& out) override {
        const descriptor directory = open_services(services_path());
        std::vector<std::string> names;
        if (!directory && errno == ENOENT)
            return ERROR_SUCCESS; // no service was ever installed
        if (!directory || !list(directory.get(), names))
            return code_of_errno(errno);
        for (const std::string& name : names) {
            if (name[0] == '.')
                continue;
            service_record record;
            const descriptor one = open_directory_of(directory.get(), name);
            const DWORD code = one ? read_service(one.get(), record) : code_of_search(errno);
            if (code == ERROR_SUCCESS)
                out.push_back(std::move(record));
            else if (code != ERROR_SERVICE_DOES_NOT_EXIST && code != ERROR_INVALID_DATA)
                return code;
        }
        return ERROR_SUCCESS;
    }

    DWORD create(const service_record& given) override {
        service_record record = given;
        const std::string path = services_path();
        if (!make_directories(path))
            return code_of_errno(errno);
        const descriptor all = open_services(path);
        if (!all)
            return code_of_errno(errno);
        std::optional<service_lock> lock(std::in_place, all.get(), all_services_lock);
        if (lock->code() != ERROR_SUCCESS)
            return lock->code();
        DWORD code = check_names(*this, path, all.get(), record);
        if (code == ERROR_SUCCESS)
            code = choose_manager(path, record.is_unit);
        record.is_unit = record.is_unit && !unit_of(record.name).empty();
        if (code != ERROR_SUCCESS)
            return code;
        if (!write_service(all.get(), record)) {
            code = code_of_errno(errno);
            remove_directory(all.get(), new_name);
            return code;
        }
        fsync(all.get());
        if (record.is_unit && record.start_type == SERVICE_AUTO_START)
            code = enable(all.get(), record);
        lock.reset();
        // The unit of a service that had this name and was deleted may be about to end.
        if (const descriptor directory = open_directory_of(all.get(), directory_name_of(record.name));
            record.is_unit && directory)
            wait_until_ended(directory.get(), unit_of(record.name));
        return code;
    }

private:
    // Opens a service that has a directory.
    static DWORD open_own(const std::string& path, wide_view name, std::unique_ptr<installed_service>& out) {
        const std::string directory_name = directory_name_of(name);
        descriptor directory = open_directory_of(AT_FDCWD, path + '/' + directory_name);
        if (!directory)
            return code_of_search(errno);
        descriptor file(openat(directory.get(), record_name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
        if (!file)
            return code_of_search(errno);
        if (has_mark(directory.get(), deleted_mark) && !others_have_it_open(file.get())
            && nothing_lives(directory.get())) {
            file.reset();
            remove_if_unused(path, directory_name); // does nothing if the caller has no right to
            return ERROR_SERVICE_DOES_NOT_EXIST;
        }
        struct stat status;
        if (!lock_record(file.get(), F_RDLCK))
            return errno == EAGAIN || errno == EACCES ? ERROR_SERVICE_DOES_NOT_EXIST : code_of_errno(errno);
        if (fstat(file.get(), &status) == 0 && status.st_nlink == 0)
            return ERROR_SERVICE_DOES_NOT_EXIST; // it was removed at this moment
        service_record record;
        if (const DWORD code = read_service(directory.get(), record); code != ERROR_SUCCESS)
            return code;
        if (!same_service_name(record.name, name))
            return ERROR_SERVICE_DOES_NOT_EXIST;
        out = std::make_unique<directory_service>(path, std::move(directory), std::move(file),
                                                  std::move(record));
        return ERROR_SUCCESS;
    }

    // Lets the machine's start begin the unit. If that fails, the new service is removed again.
    static DWORD enable(int all, const service_record& record) {
        const std::string name = directory_name_of(record.name);
        const descriptor directory = open_directory_of(all, name);
        const DWORD code = directory ? run_systemctl(is_of_users_manager(directory.get()),
                                                     {"enable", "--", unit_of(record.name)})
                                     : code_of_errno(errno);
        if (code != ERROR_SUCCESS)
            take_out(all, name.c_str());
        return code;
    }
};

} // namespace

DWORD read_service(int directory, service_record& out) {
    std::string text;
    if (!read_whole(directory, record_name, text))
        return code_of_search(errno);
    return read_record(text, out) ? ERROR_SUCCESS : ERROR_INVALID_DATA;
}

DWORD open_service_directory(wide_view name, descriptor& out) {
    out = open_directory_of(AT_FDCWD, services_path() + '/' + directory_name_of(name));
    return out ? ERROR_SUCCESS : code_of_search(errno);
}

void remove_if_unused(const std::string& path, const std::string& directory_name) {
    const descriptor all = open_services(path);
    if (!all)
        return;
    const service_lock lock(all.get(), all_services_lock);
    if (lock.code() == ERROR_SUCCESS)
        remove_unused(all.get(), directory_name);
}

void remove_if_deleted(int directory) {
    char path[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(directory);
    const ssize_t size = readlink(link.c_str(), path, sizeof path);
    const std::string name(path, static_cast<size_t>(std::max<ssize_t>(size, 0)));
    const size_t slash = name.rfind('/');
    if (has_mark(directory, deleted_mark) && slash != std::string::npos)
        remove_if_unused(name.substr(0, slash), name.substr(slash + 1));
}

service_manager& the_service_manager() {
    static directory_manager manager;
    return manager;
}

} // namespace platform
