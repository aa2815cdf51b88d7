// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QProcess>
#include <QTemporaryDir>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace corvane::test {

// What a received stream holds.
struct Recording {
    int width = 0;
    int height = 0;
    int audio_tracks = 0;
    int pictures = 0;
    double last_picture_ms = 0;
    double last_sound_ms = 0;
    bool operator==(const Recording &) const = default;
};

// A real RTMP server on loopback; records what is published, by stream key.
class LocalSink {
public:
    // Returns when connections are accepted; throws when the server does not start.
    LocalSink();
    ~LocalSink();
    LocalSink(const LocalSink &) = delete;
    LocalSink &operator=(const LocalSink &) = delete;

    std::string url() const;
    // The files of the key's streams, oldest first. Streams begun within one second share one.
    std::vector<std::filesystem::path> received(const std::string &key) const;
    // Bytes in the newest of them so far.
    uintmax_t newest_size(const std::string &key) const;
    // What it holds so far; nothing when there is none.
    Recording recording(const std::string &key) const;
    // False when not so many came in time.
    bool wait_for_pictures(const std::string &key, int count) const;
    // The application's address as the key's publisher gave it, once it has hung up; before,
    // nothing.
    std::string ended(const std::string &key) const;
    // Removes the key's files, so that only later streams count.
    void forget(const std::string &key) const;

private:
    QTemporaryDir dir_;
    int port_;
    QProcess server_;
};

} // namespace corvane::test
