// SPDX-License-Identifier: GPL-2.0-or-later
#include "recording.hpp"

#include "marker.hpp"
#include "mux/av_handles.hpp"

#include <algorithm>
#include <numeric>
#include <stdexcept>

namespace corvane::bench {

namespace {

constexpr int kRecordedFps = 30;
constexpr uint8_t kFiller = 0x84; // makes no start code

struct CloseInput {
    void operator()(AVFormatContext *context) const { avformat_close_input(&context); }
};
using Input = std::unique_ptr<AVFormatContext, CloseInput>;

Input open_input(const std::string &file) {
    AVFormatContext *context = nullptr;
    if (avformat_open_input(&context, file.c_str(), nullptr, nullptr) < 0) {
        throw std::runtime_error("cannot read " + file);
    }
    Input input(context);
    if (avformat_find_stream_info(context, nullptr) < 0 || context->nb_streams != 2) {
        throw std::runtime_error(file + " is no recording");
    }
    return input;
}

std::vector<uint8_t> annexb_header(const AVCodecParameters &parameters) {
    AVBSFContext *filter = nullptr;
    av_bsf_alloc(av_bsf_get_by_name("h264_mp4toannexb"), &filter);
    const BitstreamFilterHandle owner(filter);
    if (!filter || avcodec_parameters_copy(filter->par_in, &parameters) < 0 ||
        av_bsf_init(filter) < 0) {
        throw std::runtime_error("the recorded video is no H.264");
    }
    const AVCodecParameters &out = *filter->par_out;
    return {out.extradata, out.extradata + out.extradata_size};
}

// Turns the lengths before NAL units, four bytes each, into start codes.
void lengths_to_start_codes(std::vector<uint8_t> &payload) {
    for (size_t at = 0; at + 4 <= payload.size();) {
        const auto begin = payload.begin() + static_cast<std::ptrdiff_t>(at);
        const size_t length = std::accumulate(
            begin, begin + 4, size_t{0}, [](size_t sum, uint8_t byte) { return sum << 8U | byte; });
        std::copy_n("\0\0\0\1", 4, begin);
        at += 4 + length;
    }
}

} // namespace

Recording::Recording(const std::string &file, const Shape &shape) {
    const Input input = open_input(file);
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVCodecParameters &parameters = *input->streams[i]->codecpar;
        if (parameters.codec_type == AVMEDIA_TYPE_VIDEO) {
            video_.header = annexb_header(parameters);
        } else {
            audio_.header.assign(
                parameters.extradata, parameters.extradata + parameters.extradata_size);
        }
    }
    const PacketHandle packet(av_packet_alloc());
    while (av_read_frame(input.get(), packet.get()) == 0) {
        const AVStream &stream = *input->streams[packet->stream_index];
        const bool is_video = stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
        Packet read{.payload = {packet->data, packet->data + packet->size},
            .keyframe = (packet->flags & AV_PKT_FLAG_KEY) != 0};
        if (is_video) {
            lengths_to_start_codes(read.payload);
        }
        (is_video ? video_ : audio_).packets.push_back(std::move(read));
        av_packet_unref(packet.get());
    }
    if (video_.packets.empty() || audio_.packets.empty() || !video_.packets.front().keyframe) {
        throw std::runtime_error(file + " is no recording");
    }
    scale(shape);
}

// Keeps how the sizes are distributed over the frames.
void Recording::scale(const Shape &shape) {
    const size_t recorded = std::accumulate(video_.packets.begin(), video_.packets.end(), size_t{0},
        [](size_t sum, const Packet &packet) { return sum + packet.payload.size(); });
    const double per_frame =
        static_cast<double>(recorded) / static_cast<double>(video_.packets.size());
    const double wanted = shape.megabits > 0 ? shape.megabits * 1e6 / 8 / shape.fps
                                             : per_frame * kRecordedFps / shape.fps;
    for (Packet &packet : video_.packets) {
        const auto size =
            static_cast<size_t>(static_cast<double>(packet.payload.size()) * wanted / per_frame);
        packet.payload.resize(std::max(size, Marker::kLeastPayload), kFiller);
    }
    for (Packet &packet : audio_.packets) {
        packet.payload.resize(std::max(packet.payload.size(), Marker::kLeastPayload), kFiller);
    }
}

} // namespace corvane::bench
