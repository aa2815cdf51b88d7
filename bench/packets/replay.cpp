// SPDX-License-Identifier: GPL-2.0-or-later
#include "replay.hpp"

#include "marker.hpp"
#include "meter.hpp"

#include <util/bmem.h>

#include <sys/prctl.h>

#include <algorithm>
#include <atomic>
#include <ctime>

namespace corvane::bench {

namespace {

const Recording *replayed = nullptr;
bool delivers = false;
std::atomic<uint64_t> packets_numbered = 0;

// One encoder.
struct Replay {
    bool video;
    size_t track;
    int64_t packets = 0;
    std::vector<uint8_t> payload;
};

template <bool Video>
void *create(obs_data_t *settings, obs_encoder_t *) {
    return new Replay{.video = Video,
        .track = static_cast<size_t>(obs_data_get_int(settings, "track")),
        .payload = {}};
}

bool encode(void *data, encoder_frame *frame, encoder_packet *packet, bool *received) {
    auto &self = *static_cast<Replay *>(data);
    *received = delivers;
    if (!delivers) {
        return true;
    }
    const Recording::Packet &recorded = self.video
                                            ? replayed->video().at(self.packets)
                                            : replayed->audio_packet(self.track, self.packets);
    ++self.packets;
    self.payload = recorded.payload;
    Marker::write(self.payload, packets_numbered++);
    packet->data = self.payload.data();
    packet->size = self.payload.size();
    packet->type = self.video ? OBS_ENCODER_VIDEO : OBS_ENCODER_AUDIO;
    packet->keyframe = self.video && recorded.keyframe;
    packet->pts = packet->dts = frame->pts;
    if (!self.video) {
        packet->timebase_num = 1;
        packet->timebase_den = kSampleRate;
    }
    return true;
}

bool get_header(void *data, uint8_t **header, size_t *size) {
    const bool video = static_cast<const Replay *>(data)->video;
    const std::vector<uint8_t> &bytes = (video ? replayed->video() : replayed->audio()).header;
    *header = const_cast<uint8_t *>(bytes.data());
    *size = bytes.size();
    return true;
}

obs_encoder_info encoder_type(const char *id, const char *codec, obs_encoder_type type) {
    obs_encoder_info info = {};
    info.id = id;
    info.codec = codec;
    info.type = type;
    info.get_name = [](void *) {
        return "Replay";
    };
    info.create = type == OBS_ENCODER_VIDEO ? create<true> : create<false>;
    info.destroy = [](void *data) {
        delete static_cast<Replay *>(data);
    };
    info.encode = encode;
    info.get_extra_data = get_header;
    info.get_frame_size = [](void *) -> size_t {
        return kSamplesPerFrame;
    };
    return info;
}

// To the point. Only while sleeping, as threads that an output makes take the setting over.
void sleep_until(int64_t time_ns) {
    const timespec time{.tv_sec = time_ns / 1'000'000'000, .tv_nsec = time_ns % 1'000'000'000};
    prctl(PR_SET_TIMERSLACK, 1);
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr);
    prctl(PR_SET_TIMERSLACK, 0); // as it was
}

} // namespace

void ReplayEncoders::register_types(const Recording &recording, bool deliver) {
    replayed = &recording;
    delivers = deliver;
    for (const obs_encoder_info &info : {encoder_type("bench_h264", "h264", OBS_ENCODER_VIDEO),
             encoder_type("bench_aac", "aac", OBS_ENCODER_AUDIO)}) {
        obs_register_encoder_s(&info, sizeof(info));
    }
}

ReplayEncoders::ReplayEncoders(obs_output_t *output, const Shape &shape) {
    const OBSDataAutoRelease video = obs_data_create();
    obs_data_set_int(video, "bitrate", static_cast<long long>(shape.megabits * 1000));
    encoders_.emplace_back(obs_video_encoder_create("bench_h264", "video", video, nullptr));
    obs_encoder_set_video(encoders_.back(), obs_get_video());
    obs_output_set_video_encoder(output, encoders_.back());
    for (int track = 0; track < shape.tracks; ++track) {
        const OBSDataAutoRelease audio = obs_data_create();
        obs_data_set_int(audio, "track", track);
        obs_data_set_int(audio, "bitrate", 160);
        const auto index = static_cast<size_t>(track);
        encoders_.emplace_back(
            obs_audio_encoder_create("bench_aac", "audio", audio, index, nullptr));
        obs_encoder_set_audio(encoders_.back(), obs_get_audio());
        obs_output_set_audio_encoder(output, encoders_.back(), index);
    }
}

double Feeder::next_time() const {
    return std::min(static_cast<double>(frames_) / shape_.fps,
        static_cast<double>(sounds_) * kSamplesPerFrame / kSampleRate);
}

double Feeder::feed(double seconds) {
    const double begin = next_time();
    int64_t late_ns = 0;
    const int64_t begin_ns = now_ns();
    while (next_time() < begin + seconds) {
        const int64_t due_ns =
            begin_ns + static_cast<int64_t>((next_time() - begin) / speed_ * 1e9);
        sleep_until(due_ns);
        late_ns = std::max(late_ns, now_ns() - due_ns);
        give_next();
    }
    return static_cast<double>(late_ns) / 1e6;
}

void Feeder::give_next() {
    encoder_packet packet = {};
    if (frames_ * kSampleRate <= sounds_ * kSamplesPerFrame * shape_.fps) {
        packet.type = OBS_ENCODER_VIDEO;
        packet.timebase_num = 1;
        packet.timebase_den = shape_.fps;
        packet.pts = packet.dts = frames_;
        packet.encoder = encoders_.video();
        give(recording_.video().at(frames_++), packet);
        return;
    }
    packet.type = OBS_ENCODER_AUDIO;
    packet.timebase_num = 1;
    packet.timebase_den = kSampleRate;
    packet.pts = packet.dts = sounds_ * kSamplesPerFrame;
    for (int track = 0; track < shape_.tracks; ++track) {
        packet.track_idx = static_cast<size_t>(track);
        packet.encoder = encoders_.audio(packet.track_idx);
        give(recording_.audio_packet(packet.track_idx, sounds_), packet);
    }
    ++sounds_;
}

// Outputs keep references to payloads, whose count stands right before the first byte.
void Feeder::give(const Recording::Packet &recorded, encoder_packet packet) {
    auto *references = static_cast<long *>(bmalloc(sizeof(long) + recorded.payload.size()));
    *references = 1;
    packet.data = reinterpret_cast<uint8_t *>(references + 1);
    packet.size = recorded.payload.size();
    std::ranges::copy(recorded.payload, packet.data);
    Marker::write({packet.data, packet.size}, packets_numbered++);
    packet.keyframe = packet.type == OBS_ENCODER_VIDEO && recorded.keyframe;
    packet.dts_usec = packet.dts * 1'000'000 / packet.timebase_den;
    packet.sys_dts_usec = now_ns() / 1000;
    Meter::get().give(&packet);
    obs_encoder_packet_release(&packet);
}

} // namespace corvane::bench
