// SPDX-License-Identifier: GPL-2.0-or-later
#include "testbed/local_sink.hpp"

#include "testbed/ports.hpp"
#include "testbed/wait.hpp"

extern "C" {
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <format>
#include <fstream>
#include <stdexcept>

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
  log_format ended '$name $tcurl';
  access_log {1}/ended.log ended;
  server {{
    listen 127.0.0.1:{2};
    application live {{ live on; record all; record_path {1}; record_unique on; }}
  }}
}}
)";

} // namespace

LocalSink::LocalSink()
    : port_(free_port()) {
    const std::string dir = dir_.path().toStdString();
    std::ofstream(dir + "/conf") << std::format(kConfig, CVC_NGINX_RTMP_MODULE, dir, port_);
    server_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    server_.start(CVC_NGINX, {"-c", dir_.filePath("conf"), "-e", dir_.filePath("error.log")});
    if (!wait_until([this] { return is_tcp_port_listening(port_); })) {
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
        const AVStream &stream = *context->streams[packet->stream_index];
        const bool picture = stream.codecpar->codec_id == AV_CODEC_ID_H264;
        recording.pictures += picture;
        (picture ? recording.last_picture_ms : recording.last_sound_ms) =
            1000.0 * static_cast<double>(packet->dts) * av_q2d(stream.time_base);
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    avformat_close_input(&context);
    return recording;
}

bool LocalSink::wait_for_pictures(const std::string &key, int count) const {
    return wait_until([&] { return recording(key).pictures >= count; });
}

std::string LocalSink::ended(const std::string &key) const {
    std::ifstream streams(dir_.filePath("ended.log").toStdString());
    std::string name, tc_url;
    while (streams >> name >> tc_url) {
        if (name == key) {
            return tc_url;
        }
    }
    return {};
}

void LocalSink::forget(const std::string &key) const {
    for (const auto &file : received(key)) {
        std::filesystem::remove(file);
    }
}

} // namespace corvane::test
