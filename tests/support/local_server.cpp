// SPDX-License-Identifier: GPL-2.0-or-later
#include "support/local_server.hpp"

#include "mux/common/av_handles.hpp"
#include "support/wait.hpp"

#include <QFile>
#include <QNetworkProxy>
#include <QTcpServer>

#include <sys/prctl.h>

#include <algorithm>
#include <csignal>
#include <format>
#include <fstream>
#include <stdexcept>

namespace corvane::test {

namespace {

// Read from the system's tables: an SRT server would take a probe for its one caller.
bool is_bound(bool udp, int port) {
    const std::string wanted = std::format(":{:04X} 00000000:0000 {} ", port, udp ? "07" : "0A");
    std::ifstream sockets(udp ? "/proc/net/udp" : "/proc/net/tcp");
    std::string line;
    while (std::getline(sockets, line) && line.find(wanted) == std::string::npos) {
    }
    return !sockets.eof();
}

} // namespace

int free_port() {
    QTcpServer probe;
    probe.setProxy(QNetworkProxy::NoProxy);
    if (!probe.listen(QHostAddress::LocalHost)) {
        throw std::runtime_error("no free port");
    }
    return probe.serverPort();
}

LocalServer::LocalServer(Protocol protocol)
    : srt_(protocol == kSrt) {
    process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process_.setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGKILL); });
    start();
}

void LocalServer::start() {
    end();
    if (srt_) {
        process_.setStandardOutputFile(dir_.filePath("stream.ts"));
        process_.start("srt-live-transmit",
            {"-q", "-loglevel:fatal", QString::fromStdString(url()) + "?mode=listener",
                "file://con"});
    } else {
        QFile file(CVC_NGINX_CONFIG);
        QFile config(dir_.filePath("nginx.conf"));
        if (!file.open(QIODevice::ReadOnly) || !config.open(QIODevice::WriteOnly)) {
            throw std::runtime_error("the RTMP server's configuration cannot be written");
        }
        config.write(file.readAll()
                .replace("@MODULE@", CVC_NGINX_RTMP_MODULE)
                .replace("@FOLDER@", dir_.path().toUtf8())
                .replace("@PORT@", QByteArray::number(port_)));
        config.close();
        process_.start(CVC_NGINX, {"-c", config.fileName(), "-e", dir_.filePath("error.log")});
    }
    if (!wait_until([this] { return is_bound(srt_, port_); })) {
        throw std::runtime_error("the local server did not start");
    }
}

void LocalServer::freeze() const {
    ::kill(static_cast<pid_t>(process_.processId()), SIGSTOP);
}

// SRT's connections are closed by the server itself, those over TCP by the system.
void LocalServer::hang_up() {
    srt_ ? process_.terminate() : process_.kill();
    process_.waitForFinished();
}

void LocalServer::end() {
    process_.kill();
    process_.waitForFinished();
}

std::string LocalServer::url() const {
    return std::format("{}://127.0.0.1:{}", srt_ ? "srt" : "rtmp", port_) + (srt_ ? "" : "/live");
}

std::vector<std::filesystem::path> LocalServer::files(const std::string &key) const {
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(dir_.path().toStdString())) {
        if (entry.path().filename().string().starts_with(srt_ ? "stream.ts" : key + "-")) {
            files.push_back(entry.path());
        }
    }
    std::ranges::sort(files);
    return files;
}

uintmax_t LocalServer::received(const std::string &key) const {
    const auto found = files(key);
    return found.empty() ? 0 : file_size(found.back());
}

Recording LocalServer::recording(const std::string &key) const {
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

bool LocalServer::wait_for_frames(const std::string &key, size_t count) const {
    return wait_until([&] { return recording(key).frames.size() >= count; });
}

std::string LocalServer::ended(const std::string &key) const {
    std::ifstream streams(dir_.filePath("ended.log").toStdString());
    std::string name, tc_url;
    while (streams >> name >> tc_url) {
        if (name == key) {
            return tc_url;
        }
    }
    return {};
}

void LocalServer::forget(const std::string &key) const {
    for (const auto &file : files(key)) {
        std::filesystem::remove(file);
    }
}

} // namespace corvane::test
