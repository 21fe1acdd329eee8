#include "port.h"

#include <algorithm>

#include "failed.h"
#include "journal.h"
#include "text.h"

namespace {

constexpr int serving_threads = 4;
constexpr int32_t most_waiting = 16;
constexpr int32_t backlog = 16;
constexpr size_t longest_line = 256;
constexpr uint32_t patience_ms = 3000; // the time that one client gets
constexpr uint32_t slice_ms = 200;     // how often the acceptor looks whether the port closes

timeval milliseconds(uint32_t count) {
    return {static_cast<decltype(timeval::tv_sec)>(count / 1000),
            static_cast<decltype(timeval::tv_usec)>(count % 1000 * 1000)};
}

// The time that a client has left; never below 0.
class deadline {
public:
    timeval left() const {
        const uint32_t used = ZU_get_tick_count() - start_;
        return milliseconds(used < patience_ms ? patience_ms - used : 0);
    }

private:
    uint32_t start_ = ZU_get_tick_count();
};

bool send_all(ZU_trans* to, std::string_view text, const deadline& until) {
    while (!text.empty()) {
        uint32_t sent = 0;
        const timeval left = until.left();
        const auto size = static_cast<uint32_t>(std::min<size_t>(text.size(), 4096));
        if (!ZU_trans_send(to, text.data(), size, &sent, &left, nullptr))
            return false;
        text.remove_prefix(sent);
    }
    return true;
}

// Receives one line without its end. False if none came in time, or if it is too long.
bool receive_line(ZU_trans* from, std::string& line, const deadline& until) {
    while (line.find('\n') == line.npos) {
        char block[longest_line];
        uint32_t received = 0;
        const timeval left = until.left();
        if (line.size() > longest_line
            || !ZU_trans_recv(from, block, sizeof block, &received, &left, nullptr))
            return false;
        line.append(block, received);
    }
    line.resize(line.find('\n'));
    return true;
}

} // namespace

bool status_port::open(uint16_t port) {
    server_ = ZU_trans_socket_create_server(port, backlog, ZU_TRANS_TCP, 0, 0);
    if (!server_)
        return false;
    clients_ = ZU_queue_create(most_waiting);
    threads_.push_back(ZU_thread_create(accept_clients, this));
    for (int i = 0; i < serving_threads; ++i)
        threads_.push_back(ZU_thread_create(serve_clients, this));
    return true;
}

status_port::~status_port() {
    if (!server_)
        return;
    is_closing_ = true;
    for (int i = 0; i < serving_threads; ++i)
        ZU_queue_push(clients_, nullptr, ZU_WAIT_INFINITE, nullptr); // ends one thread
    for (ZU_thread* thread : threads_) {
        if (thread)
            ZU_thread_wait_for_termination(thread, nullptr);
    }
    ZU_trans_destroy(server_);
    ZU_queue_destroy(clients_);
}

uint32_t status_port::accept_clients(void* self) {
    auto* port = static_cast<status_port*>(self);
    while (!port->is_closing_) {
        const timeval slice = milliseconds(slice_ms);
        ZU_bool timed_out = 0;
        ZU_trans* client = ZU_trans_socket_accept(port->server_, nullptr, nullptr, &slice, &timed_out);
        if (client && !ZU_queue_push(port->clients_, client, 0, nullptr))
            ZU_trans_destroy(client); // too many clients are waiting
        if (!client && !timed_out)
            ZU_sleep(slice_ms); // without descriptors, accepting fails again at once
    }
    return 0;
}

uint32_t status_port::serve_clients(void* self) {
    auto* port = static_cast<status_port*>(self);
    void* client = nullptr;
    while (ZU_queue_pop(port->clients_, &client, ZU_WAIT_INFINITE, nullptr) && client) {
        port->serve(static_cast<ZU_trans*>(client));
        ZU_trans_destroy(static_cast<ZU_trans*>(client));
    }
    return 0;
}

void status_port::serve(ZU_trans* client) {
    const deadline until;
    std::string line;
    if (receive_line(client, line, until))
        send_all(client, answer(std::string(trimmed(line))), until);
}

std::string status_port::answer(const std::string& command) {
    const traced trace(ZU_W("answer"), command);
    if (command == "status")
        return tasks_.status();
    if (command == "stop") {
        stop_ = true;
        return "stopping\n";
    }
    if (command.starts_with("run ")) {
        const std::string name(trimmed(command.substr(4)));
        return tasks_.run_now(name) ? name + " runs\n" : "no task is called \"" + name + "\"\n";
    }
    return "commands: status, run NAME, stop\n";
}

std::string ask(const std::string& host_and_port, const std::string& command) {
    const size_t colon = host_and_port.rfind(':');
    int32_t port = 0;
    if (colon == host_and_port.npos || !read_number(std::string_view(host_and_port).substr(colon + 1), port)
        || port < 1 || port > 65535)
        throw failed{host_and_port + " is not HOST:PORT"};
    ZU_trans* server = ZU_trans_socket_connect(wide(host_and_port.substr(0, colon)).c_str(),
                                               static_cast<uint16_t>(port), nullptr, ZU_TRANS_TCP, 0, 0);
    if (!server)
        fail(host_and_port);
    const deadline until;
    std::string answer;
    if (send_all(server, command + "\n", until)) {
        char block[4096];
        uint32_t received = 0;
        timeval left = until.left();
        while (ZU_trans_recv(server, block, sizeof block, &received, &left, nullptr)) {
            answer.append(block, received);
            left = until.left();
        }
    }
    ZU_trans_destroy(server);
    if (answer.empty())
        throw failed{host_and_port + " gave no answer"};
    return answer;
}
