// SPDX-License-Identifier: GPL-2.0-or-later
// usage: bench_sink rtmp|srt PORT SERVER_PORT BOARD
// Stands on loopback before a real server, passes everything on in both directions and notes on
// the board when each packet came in. SERVER_PORT 0: there is no server, the bytes end here.
// Writes "ready" and ends with its standard input.
#include "board.hpp"
#include "marker.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <span>
#include <string_view>

namespace {

using namespace corvane::bench;
using Bytes = std::span<const uint8_t>;

constexpr int kSocketBuffer = 4 << 20;

[[noreturn]] void fail(const char *what) {
    perror(what);
    _exit(EXIT_FAILURE);
}

uint64_t now_ns() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time.tv_nsec);
}

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int open_socket(int kind) {
    const int made = socket(AF_INET, kind | SOCK_CLOEXEC, 0);
    if (made < 0) {
        fail("socket");
    }
    const int one = 1;
    setsockopt(made, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    setsockopt(made, SOL_SOCKET, SO_RCVBUF, &kSocketBuffer, sizeof(kSocketBuffer));
    if (kind == SOCK_STREAM) {
        setsockopt(made, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
    }
    return made;
}

int bound_socket(int kind, int port) {
    const int made = open_socket(kind);
    const sockaddr_in address = loopback(port);
    if (bind(made, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
        (kind == SOCK_STREAM && listen(made, 1) != 0)) {
        fail("bind");
    }
    return made;
}

int connected_socket(int kind, int port) {
    const int made = open_socket(kind);
    const sockaddr_in address = loopback(port);
    if (connect(made, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        fail("connect");
    }
    return made;
}

// Finds the packets in what comes in.
class Finder {
public:
    Finder(const char *board, bool srt)
        : board_(board)
        , srt_(srt) {}

    void look(Bytes bytes) {
        const uint64_t time = now_ns();
        board_->bytes += bytes.size();
        if (srt_) {
            look_into_datagram(bytes, time);
        } else {
            stream_.feed(bytes, [&](uint64_t number) { note(number, time); });
        }
    }

private:
    static constexpr size_t kSrtHeader = 16;
    static constexpr size_t kTsPacket = 188;

    // An SRT data packet holds whole TS packets; a marker can go on in its stream's next one.
    void look_into_datagram(Bytes bytes, uint64_t time) {
        const bool control = bytes.size() <= kSrtHeader || (bytes[0] & 0x80U) != 0;
        if (control) {
            return;
        }
        for (Bytes rest = bytes.subspan(kSrtHeader); rest.size() >= kTsPacket;
            rest = rest.subspan(kTsPacket)) {
            const auto pid = static_cast<uint16_t>((rest[1] & 0x1FU) << 8U | rest[2]);
            const size_t adaptation = (rest[3] & 0x20U) != 0 ? 1U + rest[4] : 0U;
            if ((rest[3] & 0x10U) != 0 && 4 + adaptation < kTsPacket) {
                elementary_[pid].feed(rest.subspan(4 + adaptation, kTsPacket - 4 - adaptation),
                    [&](uint64_t number) { note(number, time); });
            }
        }
    }

    // A datagram that is sent again counts when it first comes.
    void note(uint64_t number, uint64_t time) {
        uint64_t none = 0;
        if (board_->arrivals[number % Board::kMostPackets].compare_exchange_strong(none, time)) {
            ++board_->found;
        }
    }

    const MappedBoard board_;
    const bool srt_;
    MarkerSearch stream_;
    std::map<uint16_t, MarkerSearch> elementary_;
};

// Waits until one of the sockets can be read; ends the program with its standard input.
template <size_t Count>
std::array<pollfd, Count> wait_for(const std::array<int, Count> &sockets) {
    std::array<pollfd, Count> found{};
    for (size_t i = 0; i < Count; ++i) {
        found[i] = {.fd = sockets[i], .events = POLLIN, .revents = 0};
    }
    if (poll(found.data(), Count, -1) < 0) {
        fail("poll");
    }
    if (found[0].revents != 0) {
        _exit(EXIT_SUCCESS);
    }
    return found;
}

std::array<uint8_t, 1U << 17U> buffer;

Bytes receive(int from) {
    const ssize_t size = recv(from, buffer.data(), buffer.size(), 0);
    return {buffer.data(), size > 0 ? static_cast<size_t>(size) : 0U};
}

bool pass_on(Bytes bytes, int to) {
    while (!bytes.empty()) {
        const ssize_t sent = send(to, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        bytes = bytes.subspan(static_cast<size_t>(sent));
    }
    return true;
}

void relay_connection(int client, int server_port, Finder &finder) {
    const int server = server_port != 0 ? connected_socket(SOCK_STREAM, server_port) : -1;
    for (bool open = true; open;) {
        const auto [input, from_client, from_server] =
            wait_for(std::array{STDIN_FILENO, client, server});
        if (from_client.revents != 0) {
            const Bytes bytes = receive(client);
            finder.look(bytes);
            open = !bytes.empty() && (server < 0 || pass_on(bytes, server));
        }
        if (from_server.revents != 0) {
            const Bytes bytes = receive(server);
            open = open && !bytes.empty() && pass_on(bytes, client);
        }
    }
    close(client);
    if (server >= 0) {
        close(server);
    }
}

[[noreturn]] void relay_connections(int port, int server_port, Finder &finder) {
    const int listening = bound_socket(SOCK_STREAM, port);
    puts("ready");
    fflush(stdout);
    for (;;) {
        wait_for(std::array{STDIN_FILENO, listening});
        relay_connection(accept(listening, nullptr, nullptr), server_port, finder);
    }
}

[[noreturn]] void relay_datagrams(int port, int server_port, Finder &finder) {
    const int near = bound_socket(SOCK_DGRAM, port);
    const int far = connected_socket(SOCK_DGRAM, server_port);
    sockaddr_in client{};
    puts("ready");
    fflush(stdout);
    for (;;) {
        const auto [input, from_client, from_server] =
            wait_for(std::array{STDIN_FILENO, near, far});
        if (from_client.revents != 0) {
            socklen_t size = sizeof(client);
            const ssize_t got = recvfrom(near, buffer.data(), buffer.size(), 0,
                reinterpret_cast<sockaddr *>(&client), &size);
            const Bytes bytes(buffer.data(), got > 0 ? static_cast<size_t>(got) : 0U);
            finder.look(bytes);
            send(far, bytes.data(), bytes.size(), 0);
        }
        if (from_server.revents != 0) {
            const Bytes bytes = receive(far);
            sendto(near, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&client),
                sizeof(client));
        }
    }
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 5) {
        fputs("usage: bench_sink rtmp|srt PORT SERVER_PORT BOARD\n", stderr);
        return EXIT_FAILURE;
    }
    const bool srt = std::string_view(argv[1]) == "srt";
    const int port = std::atoi(argv[2]);
    const int server_port = std::atoi(argv[3]);
    Finder finder(argv[4], srt);
    if (srt) {
        relay_datagrams(port, server_port, finder);
    }
    relay_connections(port, server_port, finder);
}
