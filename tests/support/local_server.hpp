// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/common/av_handles.hpp"
#include "support/wait.hpp"

#include <QFile>
#include <QNetworkProxy>
#include <QProcess>
#include <QTcpServer>
#include <QTemporaryDir>

#include <sys/prctl.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <format>
#include <fstream>
#include <map>
#include <stdexcept>
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
inline int free_port() {
    QTcpServer probe;
    probe.setProxy(QNetworkProxy::NoProxy);
    if (!probe.listen(QHostAddress::LocalHost)) {
        throw std::runtime_error("no free port");
    }
    return probe.serverPort();
}

// A real RTMP or SRT server on loopback, always on the same port. RTMP streams are recorded by
// stream key; the SRT server takes one caller at a time and records the bytes as they come.
class LocalServer {
public:
    enum Protocol { kRtmp, kSrt };

    // Returns when connections are accepted; throws when the server does not start.
    explicit LocalServer(Protocol protocol = kRtmp)
        : srt_(protocol == kSrt) {
        process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process_.setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGKILL); });
        start();
    }
    ~LocalServer() { end(); }
    LocalServer(const LocalServer &) = delete;
    LocalServer &operator=(const LocalServer &) = delete;

    std::string url() const {
        return std::format(
            "{}://127.0.0.1:{}{}", srt_ ? "srt" : "rtmp", port_, srt_ ? "" : "/live");
    }

    // Starts again.
    void start() {
        end();
        if (srt_) {
            process_.setStandardOutputFile(dir_.filePath("stream.ts"));
            process_.start("srt-live-transmit",
                {"-q", "-loglevel:fatal", QString::fromStdString(url()) + "?mode=listener",
                    "file://con"});
        } else {
            QFile original(CVC_NGINX_CONFIG);
            QFile config(dir_.filePath("nginx.conf"));
            if (original.open(QIODevice::ReadOnly) && config.open(QIODevice::WriteOnly)) {
                config.write(original.readAll()
                        .replace("@MODULE@", CVC_NGINX_RTMP_MODULE)
                        .replace("@FOLDER@", dir_.path().toUtf8())
                        .replace("@PORT@", QByteArray::number(port_)));
                config.close();
            }
            process_.start(CVC_NGINX, {"-c", config.fileName(), "-e", dir_.filePath("error.log")});
        }
        if (!wait_until([this] { return is_bound(); })) {
            throw std::runtime_error("the local server did not start");
        }
    }

    // Its sockets still take what fits, but nobody answers.
    void freeze() const { ::kill(static_cast<pid_t>(process_.processId()), SIGSTOP); }

    // Ends, and its connections with it: SRT's are closed by the server itself, those over TCP by
    // the system.
    void hang_up() {
        srt_ ? process_.terminate() : process_.kill();
        process_.waitForFinished();
    }

    // Bytes of the key's newest stream so far.
    uintmax_t received(const std::string &key) const {
        const auto found = files(key);
        return found.empty() ? 0 : file_size(found.back());
    }

    // What that holds so far; nothing when there is none.
    Recording recording(const std::string &key) const {
        Recording recording;
        const auto found = files(key);
        AVFormatContext *context = nullptr;
        if (found.empty() ||
            avformat_open_input(&context, found.back().c_str(), nullptr, nullptr) < 0) {
            return recording;
        }
        avformat_find_stream_info(context, nullptr);
        for (unsigned i = 0; i < context->nb_streams; ++i) {
            const AVCodecParameters &parameters = *context->streams[i]->codecpar;
            if (parameters.codec_id == AV_CODEC_ID_H264) {
                recording.width = parameters.width;
                recording.height = parameters.height;
            }
            recording.audio_tracks += parameters.codec_id == AV_CODEC_ID_AAC;
        }
        const PacketHandle packet(av_packet_alloc());
        while (av_read_frame(context, packet.get()) >= 0) {
            const AVStream &stream = *context->streams[packet->stream_index];
            const bool video = stream.codecpar->codec_id == AV_CODEC_ID_H264;
            if (video) {
                recording.frames.push_back(packet->data[packet->size - 1]);
            }
            (video ? recording.last_video_ms : recording.last_audio_ms) =
                1000.0 * static_cast<double>(packet->dts) * av_q2d(stream.time_base);
            recording.first_dts.try_emplace(packet->stream_index, packet->dts);
            av_packet_unref(packet.get());
        }
        avformat_close_input(&context);
        return recording;
    }
    bool wait_for_frames(const std::string &key, size_t count) const {
        return wait_until([&] { return recording(key).frames.size() >= count; });
    }

    // The application's URL as the key's publisher gave it, once it has hung up; empty before.
    std::string ended(const std::string &key) const {
        std::ifstream streams(dir_.filePath("ended.log").toStdString());
        std::string name, tc_url;
        while (streams >> name >> tc_url) {
            if (name == key) {
                return tc_url;
            }
        }
        return {};
    }

    // Removes the key's recordings, so that only later streams count.
    void forget(const std::string &key) const {
        for (const auto &file : files(key)) {
            std::filesystem::remove(file);
        }
    }

private:
    void end() {
        process_.kill();
        process_.waitForFinished();
    }

    // Read from the system's tables: an SRT server would take a probe for its one caller.
    bool is_bound() const {
        const auto wanted = std::format(":{:04X} 00000000:0000 {} ", port_, srt_ ? "07" : "0A");
        std::ifstream sockets(srt_ ? "/proc/net/udp" : "/proc/net/tcp");
        std::string line;
        while (std::getline(sockets, line) && line.find(wanted) == std::string::npos) {
        }
        return !sockets.eof();
    }

    // Oldest first. RTMP streams that begin within one second share a file.
    std::vector<std::filesystem::path> files(const std::string &key) const {
        std::vector<std::filesystem::path> files;
        for (const auto &entry : std::filesystem::directory_iterator(dir_.path().toStdString())) {
            if (entry.path().filename().string().starts_with(srt_ ? "stream.ts" : key + "-")) {
                files.push_back(entry.path());
            }
        }
        std::ranges::sort(files);
        return files;
    }

    const bool srt_;
    const int port_ = free_port();
    QTemporaryDir dir_;
    QProcess process_;
};

} // namespace corvane::test
