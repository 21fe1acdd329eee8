// Receiving what a service reports, in the protocol that services of the host speak.
#include "helper/notify.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/core/retry.h"

namespace zu_helper {

using platform::retried;

namespace {

bool is_of_session(const ucred& sender, pid_t session) {
    return sender.pid == session || (sender.pid > 0 && getsid(sender.pid) == session);
}

// The sender of a message. Descriptors that came with it are closed.
ucred sender_of(msghdr& message) {
    ucred sender = {0, static_cast<uid_t>(-1), static_cast<gid_t>(-1)};
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part; part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != SOL_SOCKET)
            continue;
        if (part->cmsg_type == SCM_CREDENTIALS) {
            std::memcpy(&sender, CMSG_DATA(part), sizeof sender);
        } else if (part->cmsg_type == SCM_RIGHTS) {
            for (size_t at = CMSG_LEN(0); at + sizeof(int) <= part->cmsg_len; at += sizeof(int)) {
                int number;
                std::memcpy(&number, reinterpret_cast<char*>(part) + at, sizeof number);
                close(number);
            }
        }
    }
    return sender;
}

// Finds or makes a directory of this user in which nobody else can put anything.
bool make_own_directory(const std::string& path) {
    struct stat found;
    return (mkdir(path.c_str(), 0711) == 0 || errno == EEXIST) && lstat(path.c_str(), &found) == 0
           && S_ISDIR(found.st_mode) && found.st_uid == geteuid() && (found.st_mode & 022) == 0
           && access(path.c_str(), W_OK | X_OK) == 0;
}

} // namespace

notify_place::notify_place(int service_directory) {
    struct stat status = {};
    fstat(service_directory, &status);
    char name[48];
    std::snprintf(name, sizeof name, "/%llx-%llx", static_cast<unsigned long long>(status.st_dev),
                  static_cast<unsigned long long>(status.st_ino));
    const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
    const std::string shared = geteuid() == 0               ? "/run/zu"
                               : runtime && *runtime == '/' ? std::string(runtime) + "/zu"
                                                            : "";
    if (shared.size() + sizeof name < sizeof sockaddr_un::sun_path && make_own_directory(shared)) {
        directory_ = shared;
        path_ = shared + name;
        return;
    }
    char fresh[] = "/tmp/zu-XXXXXX";
    if (!mkdtemp(fresh))
        return;
    directory_ = fresh;
    if (chmod(fresh, 0711) == 0) // a service that gives up its rights must reach the socket
        path_ = directory_ + name;
}

notify_place::~notify_place() {
    rmdir(directory_.c_str()); // unless other services have their sockets there
}

notify_socket::~notify_socket() {
    if (socket_)
        unlink(path_.c_str());
}

bool notify_socket::open(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        errno = path.empty() ? EACCES : ENAMETOOLONG;
        return false;
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    descriptor opened(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    unlink(path.c_str()); // left there by a helper that was killed
    const auto bind_it = [&] {
        return bind(opened.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    };
    bool is_bound =
        opened && setsockopt(opened.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof on) == 0 && bind_it();
    // The directory goes with the last service that uses it, which may have ended at this moment.
    for (int attempt = 0; !is_bound && errno == ENOENT && attempt < 100; ++attempt)
        is_bound = make_own_directory(path.substr(0, path.rfind('/'))) && bind_it();
    if (!is_bound
        || chmod(path.c_str(), 0666) != 0) // a service may give up its rights; `receive` checks the sender
        return false;
    socket_ = std::move(opened);
    path_ = path;
    return true;
}

bool notify_socket::receive(pid_t session, std::string& text) {
    for (;;) {
        char bytes[4096];
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred)) + CMSG_SPACE(64 * sizeof(int))];
        iovec piece = {bytes, sizeof bytes};
        msghdr message = {};
        message.msg_iov = &piece;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        const ssize_t size = retried([&] { return recvmsg(socket_.get(), &message, MSG_CMSG_CLOEXEC); });
        if (size < 0)
            return false;
        if (is_of_session(sender_of(message), session)) {
            text.assign(bytes, static_cast<size_t>(size));
            return true;
        }
    }
}

std::string_view reported(std::string_view text, std::string_view name) {
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        if (line.size() > name.size() && line.substr(0, name.size()) == name && line[name.size()] == '=')
            return line.substr(name.size() + 1);
        text.remove_prefix(std::min(text.size(), line.size() + 1));
    }
    return {};
}

} // namespace zu_helper
