// Socket wrappers and address helpers: the platform's socket calls under names of ours, and IPv4 addresses as text.
#include "zu/zu_socket.h"

namespace {

constexpr uint32_t address_text_size = 16; // "255.255.255.255" and its terminator

template <class Character>
void write_address(uint32_t address, Character* out) {
    uint8_t bytes[4];
    std::memcpy(bytes, &address, sizeof bytes);
    for (int i = 0; i < 4; ++i) {
        const int number = bytes[i];
        if (number >= 100)
            *out++ = static_cast<Character>('0' + number / 100);
        if (number >= 10)
            *out++ = static_cast<Character>('0' + number / 10 % 10);
        *out++ = static_cast<Character>('0' + number % 10);
        *out++ = static_cast<Character>(i < 3 ? '.' : 0);
    }
}

bool is_digit(ZU_wchar c) {
    return c >= '0' && c <= '9';
}

} // namespace

SOCKET ZU_socket(int32_t family, int32_t type, int32_t protocol) {
    return platform::socket(family, type, protocol);
}

SOCKET ZU_accept(SOCKET socket, struct sockaddr* address, int32_t* address_length) {
    return platform::accept(socket, address, address_length);
}

int32_t ZU_socket_close(SOCKET socket) {
    return platform::closesocket(socket);
}

int32_t ZU_bind(SOCKET socket, const struct sockaddr* address, int32_t address_length) {
    return platform::bind(socket, address, address_length);
}

int32_t ZU_connect(SOCKET socket, const struct sockaddr* address, int32_t address_length) {
    return platform::connect(socket, address, address_length);
}

int32_t ZU_listen(SOCKET socket, int32_t backlog) {
    return platform::listen(socket, backlog);
}

int32_t ZU_select(int32_t ignored_count, fd_set* read_set, fd_set* write_set, fd_set* error_set,
                  const struct timeval* timeout) {
    if (!timeout)
        return platform::select(ignored_count, read_set, write_set, error_set, nullptr);
    platform::timeval copy{timeout->tv_sec, timeout->tv_usec};
    return platform::select(ignored_count, read_set, write_set, error_set, &copy);
}

int32_t ZU_setsockopt(SOCKET socket, int32_t level, int32_t option, const void* value, int32_t length) {
    return platform::setsockopt(socket, level, option, static_cast<const char*>(value), length);
}

int32_t ZU_send(SOCKET socket, const void* buffer, int32_t length, int32_t flags) {
    return platform::send(socket, static_cast<const char*>(buffer), length, flags);
}

int32_t ZU_sendto(SOCKET socket, const void* buffer, int32_t length, int32_t flags,
                  const struct sockaddr* address, int32_t address_length) {
    return platform::sendto(socket, static_cast<const char*>(buffer), length, flags, address, address_length);
}

int32_t ZU_recv(SOCKET socket, void* buffer, int32_t capacity, int32_t flags) {
    return platform::recv(socket, static_cast<char*>(buffer), capacity, flags);
}

int32_t ZU_recvfrom(SOCKET socket, void* buffer, int32_t capacity, int32_t flags, struct sockaddr* address,
                    int32_t* address_length) {
    return platform::recvfrom(socket, static_cast<char*>(buffer), capacity, flags, address, address_length);
}

uint32_t ZU_inet_addr(const char* text) {
    return platform::inet_addr(text);
}

uint32_t ZU_inet_addr_tchar(const ZU_wchar* text) {
    const zu::owned<char> narrow(ZU_wchar_2_char(ZU_ENCODING_ANSI, text, -1, nullptr));
    return ZU_inet_addr(narrow.get());
}

void ZU_inet_ntoa(uint32_t address, char* buffer) {
    write_address(address, buffer);
}

void ZU_inet_ntoa_tchar(uint32_t address, ZU_wchar* buffer) {
    write_address(address, buffer);
}

int32_t ZU_gethostname(ZU_wchar* buffer, uint32_t capacity) {
    platform::DWORD size = capacity;
    return platform::GetComputerNameW(buffer, &size) ? 1 : 0;
}

ZU_bool ZU_is_ip_address(const ZU_wchar* text) {
    if (!is_digit(text[0]) || text[1] == 0)
        return false;
    uint32_t dots = 0;
    uint32_t position = 1;
    for (; text[position] != 0; ++position) {
        if (position >= address_text_size - 1)
            return false;
        if (text[position] == '.' ? ++dots > 3 : !is_digit(text[position]))
            return false;
    }
    return dots == 3 && text[position - 1] != '.';
}

ZU_wchar* ZU_get_ip_address_by_host_name(const ZU_wchar* name) {
    if (ZU_is_ip_address(name))
        return ZU_strdup(name);
    char* narrow = ZU_wchar_2_char(ZU_ENCODING_ANSI, name, -1, nullptr);
    const platform::hostent* entry = platform::gethostbyname(narrow);
    {
        const zu::keep_last_error reason;
        ZU_free(narrow);
    }
    if (!entry)
        return nullptr;
    uint32_t address;
    std::memcpy(&address, entry->h_addr_list[0], sizeof address);
    ZU_wchar text[address_text_size];
    ZU_inet_ntoa_tchar(address, text);
    return ZU_strdup(text);
}
