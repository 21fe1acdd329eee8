// Datagram sockets, and what the network reports about datagrams that were sent.
//
// The kernel queues a report and makes the next call on the socket fail. A send that fails so is made again, and the
// report stays in the queue for the next receive. Only reports of ports where nobody listens count; others are dropped.
#include "platform/sockets/datagram.h"

#include <netinet/in.h>
#include <netinet/ip_icmp.h>
#include <sys/uio.h>

#include <linux/errqueue.h>

#include <atomic>
#include <cerrno>

#include "platform/sockets/interrupted.h"
#include "platform/sockets/socket_state.h"

namespace platform {

namespace {

std::atomic<bool> in_use{false};

// True once a send has met a report. From then on receives look into the queue first: the send took the error away.
std::atomic<bool> reports_left_behind{false};

bool can_have_reports(int descriptor) {
    const int family = socket_family(descriptor);
    return (family == AF_INET || family == AF_INET6) && socket_type(descriptor) == SOCK_DGRAM;
}

enum class report { none, nobody_listens, other };

report next_report(int descriptor) {
    alignas(cmsghdr) char control[512];
    msghdr message{};
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    if (!can_have_reports(descriptor) || ::recvmsg(descriptor, &message, MSG_ERRQUEUE | MSG_DONTWAIT) < 0)
        return report::none;
    report found = report::none; // what the call gives without a report is none, or the look would never end
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part; part = CMSG_NXTHDR(&message, part)) {
        const bool is_error = (part->cmsg_level == IPPROTO_IP && part->cmsg_type == IP_RECVERR)
                              || (part->cmsg_level == IPPROTO_IPV6 && part->cmsg_type == IPV6_RECVERR);
        if (!is_error)
            continue;
        if (reinterpret_cast<const sock_extended_err*>(CMSG_DATA(part))->ee_errno == ECONNREFUSED)
            return report::nobody_listens;
        found = report::other;
    }
    return found;
}

// Takes reports off the queue up to the first of a port where nobody listens.
bool nobody_listened(int descriptor) {
    report next;
    while ((next = next_report(descriptor)) == report::other) {}
    return next == report::nobody_listens;
}

} // namespace

void begin_datagrams(int descriptor) {
    in_use.store(true, std::memory_order_relaxed);
    const int on = 1; // a family without the option refuses it
    ::setsockopt(descriptor, IPPROTO_IP, IP_RECVERR, &on, sizeof on);
    ::setsockopt(descriptor, IPPROTO_IPV6, IPV6_RECVERR, &on, sizeof on);
}

bool datagrams_in_use() {
    return in_use.load(std::memory_order_relaxed);
}

bool waits_in_vain(int descriptor) {
    return !socket_is_bound(descriptor) && socket_type(descriptor) == SOCK_DGRAM;
}

bool may_tell_of_an_earlier_datagram(int descriptor) {
    const int error = errno;
    const bool may = datagrams_in_use() && error != EAGAIN && can_have_reports(descriptor);
    if (may)
        reports_left_behind.store(true, std::memory_order_relaxed);
    errno = error;
    return may;
}

ssize_t receive_maybe_datagram(int descriptor, char* buffer, size_t capacity, int flags, sockaddr* address,
                               socklen_t* length, bool& truncated) {
    bool look_first = reports_left_behind.load(std::memory_order_relaxed);
    for (;;) {
        if (look_first && nobody_listened(descriptor)) {
            errno = ECONNREFUSED;
            return -1;
        }
        iovec piece{buffer, capacity};
        msghdr message{};
        message.msg_name = address;
        message.msg_namelen = address ? *length : 0;
        message.msg_iov = &piece;
        message.msg_iovlen = 1;
        const ssize_t received = resumed({descriptor, SO_RCVTIMEO, POLLIN}, [&](int further_flags) {
            return ::recvmsg(descriptor, &message, flags | further_flags);
        });
        if (received >= 0) {
            if (address)
                *length = message.msg_namelen;
            truncated = message.msg_flags & MSG_TRUNC;
            return received;
        }
        const int error = errno;
        const report told = error == EAGAIN ? report::none : next_report(descriptor);
        errno = told == report::nobody_listens ? ECONNREFUSED : error;
        if (told != report::other)
            return -1;
        look_first = true;
    }
}

} // namespace platform
