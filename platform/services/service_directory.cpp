// Services as directories: what makes one appear and disappear as a whole, whatever happens on the way.
#include "platform/services/service_directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>

#include <cerrno>
#include <cstring>
#include <mutex>

#include "platform/core/error.h"
#include "platform/core/host_dir.h"
#include "platform/core/retry.h"
#include "platform/services/service_record.h"
#include "platform/services/service_run.h"
#include "platform/services/service_status.h"

namespace platform {

namespace {

constexpr const char* new_name = ".new";
constexpr const char* gone_name = ".gone";

descriptor open_directory(int at, const char* name) {
    return descriptor(openat(at, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
}

// A lock on a service's record: for reading by whoever has the service open, for writing by whoever removes it. It
// belongs to the description, so that handles of one process count each for itself.
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

std::string read_whole(int directory, const char* name) {
    std::string text;
    const descriptor file(openat(directory, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    for (char block[4096];;) {
        const ssize_t size = file ? retried([&] { return read(file.get(), block, sizeof block); }) : 0;
        if (size <= 0)
            return text;
        text.append(block, static_cast<size_t>(size));
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

// Calls the function with the name of every entry but "." and "..".
template <class F>
void each_entry(const descriptor& directory, F&& function) {
    const int own = openat(directory.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* const stream = own < 0 ? nullptr : fdopendir(own);
    if (!stream)
        return;
    while (const dirent* entry = readdir(stream)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            function(entry->d_name);
    }
    closedir(stream);
}

// A service's directory holds files alone.
void remove_directory(int at, const char* name) {
    const descriptor directory = open_directory(at, name);
    if (!directory)
        return;
    each_entry(directory, [&](const char* file) { unlinkat(directory.get(), file, 0); });
    unlinkat(at, name, AT_REMOVEDIR);
}

// Makes a path of directories, as far as it is missing; the last one is for all to read.
bool make_directories(const std::string& path) {
    for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string part = path.substr(0, end);
        if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST)
            return false;
        if (end == std::string::npos)
            return true;
    }
}

// The nearest directory on the way to a path that exists.
std::string existing_part(std::string path) {
    while (path.size() > 1 && access(path.c_str(), F_OK) != 0)
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

    bool may_be_changed() const override {
        return faccessat(directory_.get(), ".", W_OK | X_OK, AT_EACCESS) == 0;
    }

    bool is_marked() const override { return has_mark(directory_.get(), deleted_mark); }

    DWORD mark() override {
        if (set_mark(directory_.get(), deleted_mark))
            return ERROR_SUCCESS;
        return errno == EEXIST ? ERROR_SERVICE_MARKED_FOR_DELETE : code_of_errno(errno);
    }

    SERVICE_STATUS status() override {
        const std::lock_guard guard(watch_lock_);
        return status_of(record_, watch_.look(directory_.get()));
    }

    DWORD start() override {
        const services_lock lock(path_, services_lock::use::shared);
        return lock.code() != ERROR_SUCCESS ? lock.code() : start_service(directory_.get());
    }

    DWORD control(DWORD control) override { return control_service(directory_.get(), control); }

    void finish_off() override { finish_off_service(directory_.get()); }

private:
    std::string path_; // of all services
    descriptor directory_;
    descriptor record_file_;
    service_record record_;
    std::mutex watch_lock_;
    status_watch watch_;
};

// Removes a marked service of which nothing lives and that nobody has open; the caller holds the lock.
bool remove_unused(const descriptor& all, const char* name) {
    const descriptor directory = open_directory(all.get(), name);
    const descriptor record(openat(directory.get(), "record", O_RDWR | O_CLOEXEC | O_NOFOLLOW));
    if (!record || !has_mark(directory.get(), deleted_mark) || !lock_record(record.get(), F_WRLCK)
        || status_watch().look(directory.get()).is_alive)
        return false;
    remove_notify_socket(directory.get());
    remove_directory(all.get(), gone_name); // of a removal that was cut short
    if (renameat(all.get(), name, all.get(), gone_name) != 0)
        return false;
    remove_directory(all.get(), gone_name);
    return true;
}

// Whether a service can be recorded under its names, and beside those that it depends on.
DWORD code_of_names(service_manager& manager, const descriptor& all, const service_record& record) {
    const std::string name = directory_name_of(record.name);
    if (const descriptor same = open_directory(all.get(), name.c_str())) {
        if (!has_mark(same.get(), deleted_mark))
            return ERROR_SERVICE_EXISTS;
        if (!remove_unused(all, name.c_str()))
            return ERROR_SERVICE_MARKED_FOR_DELETE;
    }
    for (const service_record& other : manager.all()) {
        if (same_service_name(other.display_name, record.display_name)
            || same_service_name(other.name, record.display_name))
            return ERROR_DUPLICATE_SERVICE_NAME;
    }
    return depends_on_itself(manager, record) ? ERROR_CIRCULAR_DEPENDENCY : ERROR_SUCCESS;
}

class directory_manager final : public service_manager {
public:
    bool may_create() const override {
        return faccessat(AT_FDCWD, existing_part(services_path()).c_str(), W_OK | X_OK, AT_EACCESS) == 0;
    }

    std::unique_ptr<installed_service> open(wide_view name, DWORD& code) override {
        const std::string path = services_path();
        const std::string directory_name = directory_name_of(name);
        descriptor directory = open_directory(AT_FDCWD, (path + '/' + directory_name).c_str());
        descriptor file(directory ? openat(directory.get(), "record", O_RDONLY | O_CLOEXEC | O_NOFOLLOW)
                                  : -1);
        code =
            file || errno == ENOENT || errno == ENOTDIR ? ERROR_SERVICE_DOES_NOT_EXIST : code_of_errno(errno);
        if (!file)
            return nullptr;
        if (has_mark(directory.get(), deleted_mark) && !others_have_it_open(file.get())
            && !status_watch().look(directory.get()).is_alive) {
            file.reset();
            remove_if_unused(path, directory_name); // as far as the caller may
            return nullptr;
        }
        struct stat status;
        if (!lock_record(file.get(), F_RDLCK) || fstat(file.get(), &status) != 0 || status.st_nlink == 0)
            return nullptr; // it is being removed at this moment
        service_record record;
        if (!read_service(directory.get(), record)) {
            code = ERROR_INVALID_DATA;
            return nullptr;
        }
        if (!same_service_name(record.name, name))
            return nullptr;
        code = ERROR_SUCCESS;
        return std::make_unique<directory_service>(path, std::move(directory), std::move(file),
                                                   std::move(record));
    }

    bool find(wide_view name, service_record& out) override {
        const std::string path = services_path() + '/' + directory_name_of(name);
        return read_service(open_directory(AT_FDCWD, path.c_str()).get(), out)
               && same_service_name(out.name, name);
    }

    std::vector<service_record> all() override {
        std::vector<service_record> found;
        const descriptor directory = open_directory(AT_FDCWD, services_path().c_str());
        each_entry(directory, [&](const char* name) {
            service_record record;
            if (name[0] != '.' && read_service(open_directory(directory.get(), name).get(), record))
                found.push_back(std::move(record));
        });
        return found;
    }

    DWORD create(const service_record& record) override {
        const std::string path = services_path();
        if (!make_directories(path))
            return code_of_errno(errno);
        const services_lock lock(path, services_lock::use::alone);
        if (lock.code() != ERROR_SUCCESS)
            return lock.code();
        const descriptor all = open_directory(AT_FDCWD, path.c_str());
        if (const DWORD code = code_of_names(*this, all, record); code != ERROR_SUCCESS)
            return code;

        remove_directory(all.get(), new_name); // of an installation that was cut short
        if (mkdirat(all.get(), new_name, 0755) != 0)
            return code_of_errno(errno);
        const descriptor directory = open_directory(all.get(), new_name);
        if (!directory || fchmod(directory.get(), 0755) != 0
            || !write_whole(directory.get(), "record", text_of(record)) || fsync(directory.get()) != 0
            || renameat(all.get(), new_name, all.get(), directory_name_of(record.name).c_str()) != 0) {
            const DWORD code = code_of_errno(errno);
            remove_directory(all.get(), new_name);
            return code;
        }
        fsync(all.get());
        return ERROR_SUCCESS;
    }
};

} // namespace

std::string services_path() {
    return in_host_directory("services");
}

bool lock_within_a_moment(int file, int operation) {
    for (int attempt = 0; retried([&] { return flock(file, operation | LOCK_NB); }) != 0; ++attempt) {
        if (attempt == 100)
            return false;
        const timespec pause = {0, 10'000'000};
        nanosleep(&pause, nullptr);
    }
    return true;
}

services_lock::services_lock(const std::string& path, use how)
    : file_(open((path + "/.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600)) {
    if (!file_)
        code_ = code_of_errno(errno);
    else if (!lock_within_a_moment(file_.get(), how == use::alone ? LOCK_EX : LOCK_SH))
        code_ = ERROR_SERVICE_DATABASE_LOCKED;
}

bool read_service(int directory, service_record& out) {
    return directory >= 0 && read_record(read_whole(directory, "record"), out);
}

bool has_mark(int directory, const char* mark) {
    return faccessat(directory, mark, F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

bool set_mark(int directory, const char* mark) {
    const descriptor file(openat(directory, mark, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    return file && fsync(directory) == 0;
}

void remove_if_unused(const std::string& path, const std::string& directory_name) {
    const services_lock lock(path, services_lock::use::alone);
    if (lock.code() == ERROR_SUCCESS)
        remove_unused(open_directory(AT_FDCWD, path.c_str()), directory_name.c_str());
}

service_manager& the_service_manager() {
    static directory_manager manager;
    return manager;
}

} // namespace platform
