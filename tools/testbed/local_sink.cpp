// SPDX-License-Identifier: GPL-2.0-or-later
#include "testbed/local_sink.hpp"

#include "testbed/wait.hpp"

extern "C" {
#include <libavformat/avformat.h>
}

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <format>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace corvane::test {

namespace {

constexpr const char *kConfig = R"(
load_module {0};
daemon off;
master_process off;
pid {1}/pid;
error_log {1}/error.log;
events {{ worker_connections 64; }}
rtmp {{
  access_log off;
  server {{
    listen 127.0.0.1:{2};
    application live {{ live on; record all; record_path {1}; record_unique on; }}
  }}
}}
)";

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// A TCP socket, closed at the end of its scope.
class Socket {
public:
    Socket()
        : descriptor_(require(socket(AF_INET, SOCK_STREAM, 0))) {}
    ~Socket() { close(descriptor_); }
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;

    static int require(int result) {
        if (result < 0) {
            throw std::system_error(errno, std::generic_category(), "test socket");
        }
        return result;
    }
    int get() const { return descriptor_; }

private:
    int descriptor_;
};

bool accepts_connections(int port) {
    const Socket probe;
    const sockaddr_in address = loopback(port);
    return connect(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
}

} // namespace

int free_port() {
    const Socket probe;
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof(address);
    auto *generic = reinterpret_cast<sockaddr *>(&address);
    Socket::require(bind(probe.get(), generic, size));
    Socket::require(getsockname(probe.get(), generic, &size));
    return ntohs(address.sin_port);
}

LocalSink::LocalSink()
    : port_(free_port()) {
    const std::string dir = dir_.path().toStdString();
    std::ofstream(dir + "/conf") << std::format(kConfig, CVC_NGINX_RTMP_MODULE, dir, port_);
    server_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    server_.start(CVC_NGINX, {"-c", dir_.filePath("conf"), "-e", dir_.filePath("error.log")});
    if (!wait_until([this] { return accepts_connections(port_); })) {
        throw std::runtime_error("the test's RTMP server did not start");
    }
}

LocalSink::~LocalSink() {
    server_.terminate();
    server_.waitForFinished();
}

std::string LocalSink::url() const {
    return std::format("rtmp://127.0.0.1:{}/live", port_);
}

std::vector<std::filesystem::path> LocalSink::received(const std::string &key) const {
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(dir_.path().toStdString())) {
        if (entry.path().filename().string().starts_with(key + "-")) {
            files.push_back(entry.path());
        }
    }
    std::ranges::sort(files);
    return files;
}

uintmax_t LocalSink::newest_size(const std::string &key) const {
    const auto files = received(key);
    return files.empty() ? 0 : file_size(files.back());
}

Recording LocalSink::recording(const std::string &key) const {
    Recording recording;
    const auto files = received(key);
    AVFormatContext *context = nullptr;
    if (files.empty() ||
        avformat_open_input(&context, files.back().c_str(), nullptr, nullptr) < 0) {
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
    AVPacket *packet = av_packet_alloc();
    while (av_read_frame(context, packet) >= 0) {
        recording.pictures +=
            context->streams[packet->stream_index]->codecpar->codec_id == AV_CODEC_ID_H264;
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    avformat_close_input(&context);
    return recording;
}

bool LocalSink::wait_for_pictures(const std::string &key, int count) const {
    return wait_until([&] { return recording(key).pictures >= count; });
}

void LocalSink::forget(const std::string &key) const {
    for (const auto &file : received(key)) {
        std::filesystem::remove(file);
    }
}

} // namespace corvane::test
