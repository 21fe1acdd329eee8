// Transport objects: a connection endpoint behind a table of operations, and its one kind, over a TCP socket.
#include "zu/zu_trans.h"

#include <algorithm>

#include "zu/zu_socket.h"

namespace {

// ---- The operations of the socket transport --------------------------------------------------------------------

void clear(ZU_bool* timed_out) {
    if (timed_out)
        *timed_out = 0;
}

bool is_stream(const ZU_trans* transport) {
    return transport->kind == zu::trans_kind::socket && transport->flags & ZU_TRANS_TCP;
}

enum class direction { read, write };

// Waits until the socket is ready or the time-out ends; true if it is ready. Without a time-out it does not wait.
bool wait_until_ready(SOCKET socket, direction wanted, const platform::timeval* timeout, ZU_bool* timed_out) {
    if (!timeout)
        return true;
    platform::one_socket_set set(socket);
    const bool reads = wanted == direction::read;
    const int ready = platform::select(static_cast<int>(socket) + 1, reads ? &set : nullptr,
                                       reads ? nullptr : &set, nullptr, timeout);
    if (ready == 0 && timed_out)
        *timed_out = 1;
    return ready > 0;
}

// The steps that send and receive share, before they touch the data.
bool begin_transfer(const ZU_trans* transport, direction wanted, uint32_t* count,
                    const platform::timeval* timeout, ZU_bool* timed_out) {
    *count = 0;
    clear(timed_out);
    if (!is_stream(transport) || transport->role == zu::trans_role::server)
        return zu::fail(ERROR_INVALID_PARAMETER);
    return wait_until_ready(transport->socket, wanted, timeout, timed_out);
}

// A piece of more than 2 GiB goes in part, as any piece may.
int32_t one_call(uint32_t length) {
    return static_cast<int32_t>(std::min<uint32_t>(length, INT32_MAX));
}

void socket_destroy(ZU_trans* transport) {
    if (transport->socket != INVALID_SOCKET) {
        ZU_socket_close(transport->socket);
        transport->socket = INVALID_SOCKET;
    }
    transport->flags = 0;
}

ZU_bool socket_send(ZU_trans* transport, const void* buffer, uint32_t length, uint32_t* sent,
                    const struct timeval* timeout, ZU_bool* timed_out) {
    if (!begin_transfer(transport, direction::write, sent, timeout, timed_out))
        return false;
    const int32_t size = one_call(length);
    // A peer that reads slowly would hold a send that blocks for longer than the time-out.
    const int32_t result =
        timeout ? platform::send_what_fits(transport->socket, static_cast<const char*>(buffer), size)
                : ZU_send(transport->socket, buffer, size, 0);
    if (result < 0)
        return false;
    *sent = static_cast<uint32_t>(result);
    return true;
}

ZU_bool socket_receive(ZU_trans* transport, void* buffer, uint32_t capacity, uint32_t* received,
                       const struct timeval* timeout, ZU_bool* timed_out) {
    if (!begin_transfer(transport, direction::read, received, timeout, timed_out))
        return false;
    const int32_t result = ZU_recv(transport->socket, buffer, one_call(capacity), 0);
    if (result < 0)
        return false;
    if (result == 0) {
        platform::SetLastError(WSAECONNRESET);
        return false;
    }
    *received = static_cast<uint32_t>(result);
    return true;
}

const ZU_trans_ops socket_ops = {socket_destroy, socket_send, socket_receive};

// ---- Making transports -----------------------------------------------------------------------------------------

ZU_trans* new_transport(SOCKET socket, uint32_t flags, zu::trans_role role) {
    auto* transport = zu::allocate<ZU_trans>();
    *transport = {zu::trans_kind::socket, &socket_ops, flags, socket, role};
    return transport;
}

void set_option(SOCKET socket, int32_t option, int32_t value) {
    ZU_setsockopt(socket, SOL_SOCKET, option, &value, sizeof value);
}

void set_switch(SOCKET socket, int32_t option, uint32_t flags, uint32_t on, uint32_t off) {
    if (flags & on)
        set_option(socket, option, 1);
    else if (flags & off)
        set_option(socket, option, 0);
}

struct buffer_sizes {
    int32_t send;
    int32_t receive;
};

// Makes a socket, binds it if a local port is given, and sets its options.
SOCKET set_up(const uint16_t* local_port, uint32_t flags, buffer_sizes sizes) {
    if (!(flags & (ZU_TRANS_TCP | ZU_TRANS_UDP)))
        return zu::fail(ERROR_INVALID_PARAMETER, INVALID_SOCKET);
    const SOCKET socket = flags & ZU_TRANS_TCP ? ZU_socket(AF_INET, SOCK_STREAM, IPPROTO_TCP)
                                               : ZU_socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (socket == INVALID_SOCKET)
        return INVALID_SOCKET;
    if (local_port && zu::bind_to(socket, zu::ipv4(*local_port, INADDR_ANY)) != 0) {
        const zu::keep_last_error reason;
        ZU_socket_close(socket);
        return INVALID_SOCKET;
    }
    set_switch(socket, SO_REUSEADDR, flags, ZU_TRANS_REUSEADDR, ZU_TRANS_NO_REUSEADDR);
    set_switch(socket, SO_KEEPALIVE, flags, ZU_TRANS_KEEPALIVE, ZU_TRANS_NO_KEEPALIVE);
    if (sizes.send > 0)
        set_option(socket, SO_SNDBUF, sizes.send);
    if (sizes.receive > 0)
        set_option(socket, SO_RCVBUF, sizes.receive);
    return socket;
}

// Destroys a transport that could not be made, and keeps the last-error code.
ZU_trans* abandon(ZU_trans* transport) {
    const zu::keep_last_error reason;
    ZU_trans_destroy(transport);
    return nullptr;
}

} // namespace

ZU_trans* ZU_trans_socket_create_server(uint16_t port, int32_t backlog, uint32_t flags,
                                        int32_t send_buffer_bytes, int32_t receive_buffer_bytes) {
    ZU_trans* server = new_transport(set_up(&port, flags, {send_buffer_bytes, receive_buffer_bytes}), flags,
                                     zu::trans_role::server);
    if (server->socket == INVALID_SOCKET)
        return abandon(server);
    if (flags & ZU_TRANS_TCP && ZU_listen(server->socket, backlog) != 0)
        return abandon(server);
    return server;
}

ZU_trans* ZU_trans_socket_accept(ZU_trans* server, struct sockaddr* peer, int32_t* peer_length,
                                 const struct timeval* timeout, ZU_bool* timed_out) {
    clear(timed_out);
    if (!is_stream(server) || server->role != zu::trans_role::server)
        return zu::fail<ZU_trans*>(ERROR_INVALID_PARAMETER);
    if (!wait_until_ready(server->socket, direction::read, timeout, timed_out))
        return nullptr;
    const SOCKET accepted = ZU_accept(server->socket, peer, peer_length);
    if (accepted == INVALID_SOCKET)
        return nullptr;
    return new_transport(accepted, server->flags, zu::trans_role::accepted);
}

ZU_trans* ZU_trans_socket_connect(const ZU_wchar* host, uint16_t port, const uint16_t* local_port,
                                  uint32_t flags, int32_t send_buffer_bytes, int32_t receive_buffer_bytes) {
    ZU_wchar* dotted = ZU_get_ip_address_by_host_name(host);
    if (!dotted)
        return nullptr;
    char* narrow = ZU_wchar_2_char(ZU_ENCODING_ANSI, dotted, -1, nullptr);
    ZU_trans* client = new_transport(set_up(local_port, flags, {send_buffer_bytes, receive_buffer_bytes}),
                                     flags, zu::trans_role::client);
    if (client->socket == INVALID_SOCKET
        || zu::connect_to(client->socket, zu::ipv4(port, ZU_inet_addr(narrow))) != 0)
        client = abandon(client);
    const zu::keep_last_error reason;
    ZU_free(narrow);
    ZU_free(dotted);
    return client;
}

ZU_bool ZU_trans_send(ZU_trans* transport, const void* buffer, uint32_t length, uint32_t* sent,
                      const struct timeval* timeout, ZU_bool* timed_out) {
    return transport->ops->send(transport, buffer, length, sent, timeout, timed_out);
}

ZU_bool ZU_trans_recv(ZU_trans* transport, void* buffer, uint32_t capacity, uint32_t* received,
                      const struct timeval* timeout, ZU_bool* timed_out) {
    return transport->ops->receive(transport, buffer, capacity, received, timeout, timed_out);
}

void ZU_trans_destroy(ZU_trans* transport) {
    if (!transport)
        return;
    if (transport->ops && transport->ops->destroy)
        transport->ops->destroy(transport);
    ZU_free(transport);
}
