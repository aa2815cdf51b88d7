// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QProcess>
#include <QTemporaryDir>

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace corvane::test {

// What a received file holds.
struct Recording {
    int width = 0;
    int height = 0;
    int audio_tracks = 0;
    std::vector<int> frames; // the last byte of each
    double last_video_ms = 0;
    double last_audio_ms = 0;
    std::map<int, int64_t> first_dts; // by stream
    bool operator==(const Recording &) const = default;
};

// A TCP port on loopback that nobody listens on.
int free_port();

// A real RTMP or SRT server on loopback, always on the same port. RTMP streams are recorded by
// stream key; the SRT server takes one caller at a time and records the bytes as they come.
class LocalServer {
public:
    enum Protocol { kRtmp, kSrt };

    // Returns when connections are accepted; throws when the server does not start.
    explicit LocalServer(Protocol protocol = kRtmp);
    ~LocalServer() { end(); }
    LocalServer(const LocalServer &) = delete;
    LocalServer &operator=(const LocalServer &) = delete;

    std::string url() const;

    // Starts again.
    void start();
    // Its sockets still take what fits, but nobody answers.
    void freeze() const;
    // Ends, and its connections with it.
    void hang_up();

    // Bytes of the key's newest stream so far.
    uintmax_t received(const std::string &key) const;
    // What that holds so far; nothing when there is none.
    Recording recording(const std::string &key) const;
    bool wait_for_frames(const std::string &key, size_t count) const;
    // The application's URL as the key's publisher gave it, once it has hung up; empty before.
    std::string ended(const std::string &key) const;
    // Removes the key's recordings, so that only later streams count.
    void forget(const std::string &key) const;

private:
    void end();
    // Oldest first. RTMP streams that begin within one second share a file.
    std::vector<std::filesystem::path> files(const std::string &key) const;

    const bool srt_;
    const int port_ = free_port();
    QTemporaryDir dir_;
    QProcess process_;
};

} // namespace corvane::test
