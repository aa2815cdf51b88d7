// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QProcess>
#include <QTemporaryDir>

#include <cstdint>
#include <string>

namespace corvane::lab {

// A real RTMP or SRT server on loopback, always at the same port, that can be frozen: the system
// still takes what fits into its sockets, but nobody answers.
class Server {
public:
    explicit Server(bool srt);
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    void start(); // returns when it takes connections; throws when that never comes
    void freeze();
    void thaw();
    void kill(); // its connections end at once

    std::string url() const;
    uintmax_t received() const; // bytes of the newest stream

    // Gives back the disk space of what was received so far; received() counts on.
    void forget() const;

private:
    std::string newest() const;

    const bool srt_;
    const int port_;
    QTemporaryDir dir_;
    QProcess process_;
};

} // namespace corvane::lab
