// Helpers that the network families share. Internal.
#pragma once

#include "zu/zu_support.h"

namespace zu {

// A socket address from a port in host order and an address in network order.
inline platform::sockaddr_in ipv4(uint16_t port, uint32_t address) {
    platform::sockaddr_in result{};
    result.sin_family = AF_INET;
    const uint8_t network_order[] = {static_cast<uint8_t>(port >> 8), static_cast<uint8_t>(port)};
    std::memcpy(&result.sin_port, network_order, sizeof network_order);
    result.sin_addr.s_addr = address;
    return result;
}

inline int32_t bind_to(SOCKET socket, const platform::sockaddr_in& address) {
    return ZU_bind(socket, reinterpret_cast<const platform::sockaddr*>(&address), sizeof address);
}

inline int32_t connect_to(SOCKET socket, const platform::sockaddr_in& address) {
    return ZU_connect(socket, reinterpret_cast<const platform::sockaddr*>(&address), sizeof address);
}

} // namespace zu
