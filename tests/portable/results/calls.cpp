// Waits, sockets on the loopback, and the registry, services, accounts and libraries, mostly those that do not exist.
#include <array>

#include "results.h"

namespace results {
namespace {

void events() {
    std::array<ZU_event*, 65> many;
    for (ZU_event*& event : many)
        event = ZU_create_event(false);
    for (const bool all : {false, true}) {
        for (const int32_t count : {-1, 0, 1, 2, 3, 64, 65})
            for (const uint32_t set : {0u, 1u, 2u, 3u, 6u, 7u}) {
                for (uint32_t i = 0; i < 3; ++i)
                    set >> i & 1 ? ZU_set_event(many[i]) : ZU_reset_event(many[i]);
                const std::string name =
                    std::string(all ? "all" : "any") + " of " + show(count) + " events, set " + show(set);
                RESULT(name, ZU_wait_for_multiple_events(count, many.data(), all, 0));
                RESULT(name + ", afterwards", show(ZU_wait_for_event(many[0], 0)));
                RESULT(name + ", afterwards", show(ZU_wait_for_event(many[1], 0)));
            }
        ZU_event* const twice[] = {many[0], many[0]};
        ZU_set_event(many[0]);
        RESULT(all ? "all" : "any", ZU_wait_for_multiple_events(2, twice, all, 0));
    }
    for (ZU_event* event : many)
        ZU_destroy_event(event);
}

void semaphores() {
    for (const int32_t initial : {-1, 0, 1, 2, INT32_MAX})
        for (const int32_t maximum : {-1, 0, 1, 2, INT32_MAX}) {
            const std::string name = "semaphore " + show(initial) + " of " + show(maximum);
            ZU_sem* sem = nullptr;
            ZU_bool timed_out = 7;
            RESULT(name, sem = ZU_sem_create(initial, maximum));
            if (!sem)
                continue;
            RESULT(name, ZU_sem_post(sem));
            for (const int32_t turn : {1, 2, 3})
                RESULT(name + ", turn " + show(turn), both(ZU_sem_wait(sem, 0, &timed_out), &timed_out));
            RESULT(name, ZU_sem_destroy(sem));
        }
}

void process_locks() {
    std::vector<std::u16string> names = split(
        uR"(zu_results;;zu_results a/b:c*?;a\b;\a;Local\zu_results;local\zu_results;Local\;Global;Local\a\b;Local\\a;Session;)"
        uR"(Local;Session\;Session\1;Session\1\;Session\1\a;Session\1\\a;Session\\a;Session\x\a;Global\zu_results)");
    names.emplace_back(260, u'z');
    names.emplace_back(261, u'z');
    for (const std::u16string& text : names)
        for (const auto create : {ZU_lock_process_create, ZU_lock_process_create_everyone}) {
            const ZU_wchar* const path = text.c_str();
            const std::string name = "lock " + show(text).substr(0, 30) + ' ' + std::to_string(text.size())
                                     + (create == ZU_lock_process_create ? "" : " of everyone");
            ZU_lock_process lock = nullptr, again = nullptr, seen = nullptr;
            RESULT(name + ", missing", ZU_lock_process_open(path));
            RESULT(name, lock = create(path));
            RESULT(name, again = create(path));
            RESULT(name, seen = ZU_lock_process_open(path));
            RESULT(name + ", free", ZU_lock_process_unlock(lock));
            RESULT(name, ZU_lock_process_lock_timeout(lock, 0));
            RESULT(name, ZU_lock_process_lock(lock));
            RESULT(name, ZU_lock_process_lock_timeout(seen, 0));
            for (const int32_t turn : {1, 2, 3})
                RESULT(name + ", turn " + show(turn), ZU_lock_process_unlock(lock));
            for (const ZU_lock_process one : {lock, again, seen})
                RESULT(name, ZU_lock_process_close(one));
        }
    for (const intptr_t number : {0x7654321, -1, -2}) {
        const ZU_lock_process never = reinterpret_cast<ZU_lock_process>(number);
        const std::string name = "never given out: " + std::to_string(number);
        RESULT(name, ZU_lock_process_lock_timeout(never, 1));
        RESULT(name, ZU_lock_process_unlock(never));
        RESULT(name, ZU_lock_process_close(never));
    }
}

struct endpoint {
    sockaddr_in record = {};

    explicit endpoint(const char* text, uint16_t port = 0) {
        record.sin_family = AF_INET;
        record.sin_addr.s_addr = ZU_inet_addr(text);
        record.sin_port = static_cast<uint16_t>(port >> 8 | port << 8);
    }
    const sockaddr* plain() const { return reinterpret_cast<const sockaddr*>(&record); }
};

// Every call on a socket in one state.
void on_socket(const std::string& name, SOCKET socket, bool listening = false) {
    const endpoint foreign("192.0.2.1"), nobody("127.0.0.1", 1);
    char bytes[4] = {};
    const int32_t length = sizeof(sockaddr_in), on = 1;
    const auto ready = [&](int which) {
        const timeval at_once = {};
        fd_set set;
        FD_ZERO(&set);
        FD_SET(socket, &set);
        return ZU_select(0, which == 0 ? &set : nullptr, which == 1 ? &set : nullptr,
                         which == 2 ? &set : nullptr, &at_once);
    };
    if (socket != INVALID_SOCKET) { // which a set cannot hold on Linux
        RESULT(name, ready(0));
        RESULT(name, ready(1));
        RESULT(name, ready(2));
    }
    RESULT(name, ZU_setsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, &on, 4));
    for (const int32_t size : {0, 1}) {
        RESULT(show(size) + ", " + name, ZU_setsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, &on, size));
        RESULT(show(size) + ", " + name, ZU_setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &on, size));
    }
    RESULT(name, ZU_setsockopt(socket, SOL_SOCKET, SO_SNDBUF, nullptr, 4));
    RESULT(name, ZU_setsockopt(socket, SOL_SOCKET, 0x7654, &on, 4));
    RESULT(name, ZU_setsockopt(socket, 4711, 1, &on, 4));
    RESULT(name, ZU_setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &on, 4));
    if (!listening) { // Wine waits without limit
        RESULT(name, ZU_send(socket, bytes, 0, 0));
        RESULT(name, ZU_send(socket, bytes, 2, 0));
        RESULT(name, ZU_sendto(socket, bytes, 2, 0, nobody.plain(), 3));
        RESULT(name, ZU_accept(socket, nullptr, nullptr) == INVALID_SOCKET);
    }
    RESULT(name, ZU_recv(socket, bytes, 0, 0));
    RESULT(name, ZU_recv(socket, bytes, 1, 0));
    RESULT(name, ZU_bind(socket, nobody.plain(), 3));
    RESULT(name, ZU_bind(socket, foreign.plain(), length));
    RESULT(name, ZU_connect(socket, nobody.plain(), 3));
    RESULT(name, ZU_listen(socket, 1));
    RESULT(name, ZU_socket_close(socket));
    RESULT(name + ", closed", ZU_socket_close(socket));
    RESULT(name + ", closed", ZU_send(socket, bytes, 2, 0));
}

void new_sockets() {
    for (const int32_t family : {0, AF_INET, AF_INET6, 77})
        for (const int32_t type : {0, int32_t{SOCK_STREAM}, int32_t{SOCK_DGRAM}, 77})
            for (const int32_t protocol : {0, int32_t{IPPROTO_TCP}, int32_t{IPPROTO_UDP}, 250}) {
                SOCKET socket = INVALID_SOCKET;
                RESULT(show(family == AF_INET6 ? 6 : family) + ' ' + show(type) + ' ' + show(protocol),
                       (socket = ZU_socket(family, type, protocol)) != INVALID_SOCKET);
                if (socket != INVALID_SOCKET)
                    ZU_socket_close(socket);
            }
}

void transports() {
    const timeval at_once = {}, wrong = {-1, 0};
    ZU_bool timed_out = 7;
    char bytes[8] = {};
    uint32_t moved = 77;
    for (const uint32_t flags : {0u, ZU_TRANS_TCP, ZU_TRANS_UDP}) {
        const std::string name = "server " + hex(flags);
        ZU_trans* server = nullptr;
        RESULT(name, server = ZU_trans_socket_create_server(0, 1, flags, 0, 0));
        if (!server)
            continue;
        for (const timeval* time : {&at_once, &wrong}) {
            const std::string timed = name + (time == &wrong ? ", wrong time" : "");
            RESULT(timed, ZU_trans_socket_accept(server, nullptr, nullptr, time, &timed_out));
            add("timed out, " + timed, show(timed_out));
        }
        RESULT(name, both(ZU_trans_send(server, bytes, 1, &moved, &at_once, &timed_out), &moved));
        RESULT(name, both(ZU_trans_recv(server, bytes, 1, &moved, &at_once, &timed_out), &moved));
        ZU_trans_destroy(server);
    }
    for (const ZU_wchar* address : {u"127.0.0.1", u"", u"a", u"256.1.1.1"})
        RESULT(show(std::u16string_view(address)), ZU_socket_test_port(address, 1, 5000));
    RESULT("null", ZU_socket_test_port(nullptr, 1, 5000));
}

void services_and_accounts() {
    std::vector<std::u16string> names = split(uR"(zu_nosuch;;a/b;a\b)");
    names.emplace_back(256, u'x');
    names.emplace_back(257, u'x');
    for (const ZU_wchar* machine : {u"", u".", u"localhost"})
        for (const std::u16string& text : names) {
            const std::string name = "service " + show(std::u16string_view(machine)) + ' '
                                     + show(text).substr(0, 12) + ' ' + std::to_string(text.size());
            RESULT(name, ZU_NT_service_exist(machine, text.c_str()));
            RESULT(name, ZU_NT_service_get_state(machine, text.c_str()));
            RESULT(name, ZU_NT_service_start(machine, text.c_str()));
            RESULT(name, ZU_NT_service_stop(machine, text.c_str()));
            RESULT(name, ZU_NT_service_uninstall(machine, text.c_str()));
        }
    RESULT("no service", ZU_NT_service_exist(nullptr, nullptr));
    for (const uint32_t type : {0u, 4u, 0x10u, 0x30u})
        for (const uint32_t start : {0u, 1u, 5u})
            RESULT("type " + hex(type) + " start " + show(start),
                   ZU_NT_service_install(nullptr, u"zu_nosuch", nullptr, u"C:\\nosuch.exe", type, start,
                                         nullptr));
    for (const ZU_wchar* machine : {u"", u"zu_nosuch"})
        for (const std::u16string& account :
             split(uR"(zu_nosuch;;zu_nodomain\zu_nosuch;a\b\c;a@b;Administrators;Everyone)"))
            RESULT(show(std::u16string_view(machine)) + ' ' + show(account),
                   ZU_user_exist(machine, account.c_str()));
}

void both_reads(const std::string& name, HKEY root, const std::u16string& subkey, const ZU_wchar* value) {
    uint32_t number = 77;
    RESULT(name, ZU_registry_get_str(root, subkey.c_str(), value));
    RESULT(name, both(ZU_registry_get_uint32(root, subkey.c_str(), value, &number), &number));
}

void registry() {
    for (const intptr_t root :
         {intptr_t{0}, intptr_t{-1}, intptr_t{0x1234}, reinterpret_cast<intptr_t>(HKEY_LOCAL_MACHINE),
          reinterpret_cast<intptr_t>(HKEY_CURRENT_USER)})
        for (const std::u16string& subkey : split(uR"(;nosuch;nosuch\a;\nosuch;nosuch\;a\\b)"))
            for (const ZU_wchar* value : {u"", u"nosuch"}) {
                const std::string name = hex(static_cast<uint32_t>(root)) + ' ' + show(subkey) + ' '
                                         + show(std::u16string_view(value));
                both_reads(name, reinterpret_cast<HKEY>(root), subkey, value);
            }
    // What checks/results has taken in from registry.reg.
    for (const std::u16string& subkey : split(uR"(;\\;\Old;\OLD\deep;\GRÖßER ]x;\größer ]x\;\LAST;/last)"))
        both_reads("zu_results" + show(subkey), HKEY_LOCAL_MACHINE, u"Software\\zu_results" + subkey, u"a");
    for (const std::u16string& value :
         split(u";pATH;commented;eleven;TWELVE;number;brief;hex dword;short;long;none;binary;"
               u"continued;expand;unended;two ends;nothing;empty;multi;quad;kind 0;kind ffff0001;eq=\\;"
               u"gone;twice;bad unclosed;after unclosed;bad dword;bad digit;bad length;bad nothing;bad type;"
               u"bad bytes;bad comma;bad rest;bad minus;bad bare;bad name;after all"))
        both_reads("zu_results " + show(value), HKEY_LOCAL_MACHINE, u"software\\\\ZU_results", value.c_str());
}

void libraries() {
    for (const std::u16string& path : split(
             uR"(;zu_nosuch;zu_nosuch.dll;C:\here\nosuch.dll;C:\here\no\such.dll;C:\here;C:\here\;Q:\a.dll;)"
             uR"(C:\here\a*b.dll;C:;.)"))
        RESULT(show(path), ZU_dll_load(path.c_str()));
}

} // namespace

void waits() {
    events();
    semaphores();
    process_locks();
}

void sockets() {
    new_sockets();
    const auto bound = [](SOCKET socket) {
        ZU_bind(socket, endpoint("127.0.0.1").plain(), sizeof(sockaddr_in));
        return socket;
    };
    on_socket("no socket", INVALID_SOCKET);
    const SOCKET closed = ZU_socket(AF_INET, SOCK_STREAM, 0);
    ZU_socket_close(closed);
    on_socket("closed, no socket", closed);
    fd_set empty;
    FD_ZERO(&empty);
    RESULT("empty", ZU_select(0, &empty, nullptr, &empty, nullptr));
    RESULT("null", ZU_select(0, nullptr, nullptr, nullptr, nullptr));
    on_socket("fresh stream socket", ZU_socket(AF_INET, SOCK_STREAM, 0));
    on_socket("bound stream socket", bound(ZU_socket(AF_INET, SOCK_STREAM, 0)));
    on_socket("fresh datagram socket", ZU_socket(AF_INET, SOCK_DGRAM, 0));
    on_socket("bound datagram socket", bound(ZU_socket(AF_INET, SOCK_DGRAM, 0)));
    const SOCKET server = ZU_socket(AF_INET, SOCK_STREAM, 0), client = ZU_socket(AF_INET, SOCK_STREAM, 0);
    uint16_t port = 13000;
    while (ZU_bind(server, endpoint("127.0.0.1", port).plain(), sizeof(sockaddr_in)) != 0)
        ++port;
    ZU_listen(server, 4);
    ZU_connect(client, endpoint("127.0.0.1", port).plain(), sizeof(sockaddr_in));
    const SOCKET accepted = ZU_accept(server, nullptr, nullptr);
    on_socket("connected stream socket", client);
    ZU_socket_close(accepted);
    on_socket("listening socket", server, true);
    transports();
    for (
        const std::u16string& text : split(
            u"; ;0;1.2;1.2.3;1.2.3.4;1.2.3.4.5;255.255.255.255;256.1.1.1;1.2.3.256;1.2.65536;1.16777216;4294967296;"
            u"0x7F.1;017;08;1.2.3.4 x;1.2.3.4x; 1.2.3.4;1..2;.1;1.;-1;a;0x;1.2.3.0xff;99999999999999999999;  ;1.2.3.4\n;"
            u"08.1.1.1;0XfF.1;010.1.2.3;1.16777215;4294967294")) {
        RESULT(show(text), hex(ZU_inet_addr_tchar(text.c_str())));
        RESULT(show(text), hex(ZU_inet_addr(std::string(text.begin(), text.end()).c_str())));
    }
}

void system_calls() {
    services_and_accounts();
    registry();
    libraries();
}

} // namespace results
