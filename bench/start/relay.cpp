// SPDX-License-Identifier: GPL-2.0-or-later
#include "relay.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <format>
#include <system_error>

namespace corvane::bench {

namespace {

int require(int result) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), "the relay's socket");
    }
    return result;
}

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// What is passed on goes out at once, so that the relay adds no waits of its own.
void never_wait(int socket) {
    const int yes = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof(yes));
}

int connect_to(int port) {
    const int server = require(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = loopback(port);
    require(connect(server, reinterpret_cast<const sockaddr *>(&address), sizeof(address)));
    return server;
}

pollfd readable(int descriptor) {
    return {.fd = descriptor, .events = POLLIN, .revents = 0};
}

// False when one of the two has hung up.
bool copy(int from, int to) {
    std::array<char, 65536> buffer;
    const ssize_t count = read(from, buffer.data(), buffer.size());
    return count > 0 && send(to, buffer.data(), static_cast<size_t>(count), MSG_NOSIGNAL) == count;
}

} // namespace

Relay::Relay(int server_port)
    : server_port_(server_port)
    , listener_(require(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))) {
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof(address);
    auto *generic = reinterpret_cast<sockaddr *>(&address);
    require(bind(listener_, generic, size));
    require(listen(listener_, 8));
    require(getsockname(listener_, generic, &size));
    port_ = ntohs(address.sin_port);
    require(pipe2(end_, O_CLOEXEC));
    thread_ = std::thread([this] { serve(); });
}

Relay::~Relay() {
    close(end_[1]);
    thread_.join();
    close(end_[0]);
    close(listener_);
}

std::string Relay::url() const {
    return std::format("rtmp://127.0.0.1:{}/live", port_);
}

void Relay::serve() {
    while (true) {
        std::array waiting{readable(listener_), readable(end_[0])};
        poll(waiting.data(), waiting.size(), -1);
        if (waiting[1].revents != 0) {
            return;
        }
        const int client = require(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC));
        connected_ = true;
        const int server = connect_to(server_port_);
        never_wait(client);
        never_wait(server);
        pass_on(client, server);
        close(client);
        close(server);
        connected_ = false;
        connected_.notify_all();
    }
}

void Relay::pass_on(int client, int server) {
    std::array waiting{readable(client), readable(server), readable(end_[0])};
    while (poll(waiting.data(), waiting.size(), -1) > 0 && waiting[2].revents == 0) {
        if (auto nothing_yet = Clock::time_point(); waiting[0].revents != 0) {
            first_byte_.compare_exchange_strong(nothing_yet, Clock::now());
        }
        if ((waiting[0].revents != 0 && !copy(client, server)) ||
            (waiting[1].revents != 0 && !copy(server, client))) {
            return;
        }
    }
}

} // namespace corvane::bench
