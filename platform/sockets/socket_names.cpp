// Addresses and names: dotted text, and look-ups of hosts by name.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "platform/api/text.h"
#include "platform/core/thread_own.h"
#include "platform/sockets/socket_error.h"

namespace platform {

// ---- Dotted text -----------------------------------------------------------------------------------------------

namespace {

bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

int digit_value(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : 16;
}

// One number in the notation of the C language. False without a digit, or beyond 32 bits.
bool read_number(const char*& at, uint32_t& value) {
    int base = 10;
    if (at[0] == '0' && (at[1] | 0x20) == 'x') {
        base = 16;
        at += 2;
    } else if (at[0] == '0') {
        base = 8;
    }
    const char* const start = at;
    uint64_t sum = 0;
    for (int digit; (digit = digit_value(*at)) < base; ++at) {
        sum = sum * static_cast<uint64_t>(base) + static_cast<uint64_t>(digit);
        if (sum > UINT32_MAX)
            return false;
    }
    value = static_cast<uint32_t>(sum);
    return at != start;
}

} // namespace

uint32_t inet_addr(const char* text) {
    if (!text)
        return INADDR_NONE;
    if (std::strcmp(text, " ") == 0) // the platform documents this one
        return INADDR_ANY;
    uint32_t address = 0;
    for (int part = 0; part < 4; ++part) {
        uint32_t value;
        if (!read_number(text, value))
            return INADDR_NONE;
        if (*text == '.') {
            if (value > 255)
                return INADDR_NONE;
            address = address << 8 | value;
            ++text;
            continue;
        }
        if (*text != 0 && !is_space(*text))
            return INADDR_NONE;
        // The last number fills the bytes that are left.
        const int bits = 32 - 8 * part;
        if (bits < 32 && value >> bits)
            return INADDR_NONE;
        return htonl(bits < 32 ? address << bits | value : value);
    }
    return INADDR_NONE;
}

// ---- Host entries ----------------------------------------------------------------------------------------------

namespace {

std::string host_name() {
    char name[HOST_NAME_MAX + 1] = "";
    ::gethostname(name, sizeof name - 1);
    *std::find(name, name + sizeof name - 1, '.') = 0;
    return name;
}

// The record that a thread's look-ups give out, with all that it points to.
struct host_record {
    hostent entry{};
    std::string name;
    std::vector<in_addr> addresses;
    std::vector<char*> address_list;
    char* no_aliases = nullptr;
    std::vector<char> resolver_storage;

    hostent* fill() {
        address_list.clear();
        for (in_addr& address : addresses)
            address_list.push_back(reinterpret_cast<char*>(&address));
        address_list.push_back(nullptr);
        entry = {name.data(), &no_aliases, AF_INET, sizeof(in_addr), address_list.data()};
        return &entry;
    }
};

// Finds the addresses of this computer: those that others can reach it by, else the loopback. False, with errno, when
// the kernel cannot be asked.
bool find_own_addresses(std::vector<in_addr>& found) {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0)
        return false;
    found.clear();
    for (const ifaddrs* at = list; at; at = at->ifa_next) {
        if (at->ifa_addr && at->ifa_addr->sa_family == AF_INET && at->ifa_flags & IFF_UP
            && !(at->ifa_flags & IFF_LOOPBACK))
            found.push_back(reinterpret_cast<const sockaddr_in*>(at->ifa_addr)->sin_addr);
    }
    freeifaddrs(list);
    if (found.empty())
        found.push_back({htonl(INADDR_LOOPBACK)});
    return true;
}

DWORD code_of_lookup(int resolver_error, int error) {
    switch (resolver_error) {
    case HOST_NOT_FOUND: return WSAHOST_NOT_FOUND;
    case TRY_AGAIN: return WSATRY_AGAIN;
    case NO_DATA: return WSANO_DATA;
    case NETDB_INTERNAL: return error == EAGAIN ? WSATRY_AGAIN : WSANO_RECOVERY;
    default: return WSANO_RECOVERY;
    }
}

hostent* look_up(const char* name) {
    host_record& record = thread_own<host_record>::get();
    std::vector<char>& storage = record.resolver_storage;
    storage.resize(std::max<size_t>(storage.size(), 1024));
    for (;;) {
        hostent* found = nullptr;
        int resolver_error = 0;
        const int error =
            gethostbyname_r(name, &record.entry, storage.data(), storage.size(), &found, &resolver_error);
        if (found) {
            SetLastError(ERROR_SUCCESS);
            return found;
        }
        if (error != ERANGE) {
            SetLastError(code_of_lookup(resolver_error, error));
            return nullptr;
        }
        storage.resize(storage.size() * 2);
    }
}

} // namespace

hostent* gethostbyname(const char* name) {
    if (!sockets_started())
        return nullptr;
    const std::string own = host_name();
    host_record& record = thread_own<host_record>::get();
    const bool own_name = name && strcasecmp(name, own.c_str()) == 0 && own != "localhost";
    if (!name || !*name || own_name) {
        if (!find_own_addresses(record.addresses)) {
            SetLastError(code_of_lookup(NETDB_INTERNAL, errno));
            return nullptr;
        }
        record.name = own;
    } else if (const in_addr address{platform::inet_addr(name)};
               address.s_addr != INADDR_NONE && !is_space(*name)) {
        record.name = name;
        record.addresses = {address};
    } else if (std::any_of(name, name + std::strlen(name), is_space)) { // no host has such a name
        SetLastError(WSAHOST_NOT_FOUND);
        return nullptr;
    } else {
        return look_up(name);
    }
    SetLastError(ERROR_SUCCESS);
    return record.fill();
}

} // namespace platform
