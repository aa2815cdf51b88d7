// SPDX-License-Identifier: GPL-2.0-or-later
#include "testbed/ports.hpp"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <format>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

namespace corvane::test {

namespace {

constexpr std::string_view kTcpListening = "0A";
constexpr std::string_view kUdpBound = "07";

// A socket without a peer, in that state.
bool is_listed(const char *table, int port, std::string_view state) {
    const std::string wanted = std::format(":{:04X} 00000000:0000 {} ", port, state);
    std::ifstream sockets(table);
    for (std::string line; std::getline(sockets, line);) {
        if (line.find(wanted) != std::string::npos) {
            return true;
        }
    }
    return false;
}

int require(int result) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), "looking for a free port");
    }
    return result;
}

} // namespace

int free_port() {
    const int probe = require(socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto *generic = reinterpret_cast<sockaddr *>(&address);
    require(bind(probe, generic, size));
    require(getsockname(probe, generic, &size));
    close(probe);
    return ntohs(address.sin_port);
}

bool is_tcp_port_listening(int port) {
    return is_listed("/proc/net/tcp", port, kTcpListening);
}

bool is_udp_port_bound(int port) {
    return is_listed("/proc/net/udp", port, kUdpBound);
}

} // namespace corvane::test
