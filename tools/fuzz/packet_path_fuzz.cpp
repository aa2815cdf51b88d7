// SPDX-License-Identifier: GPL-2.0-or-later
// Packets of any content, time and track through preparation and gate for both
// containers: what comes out can be written to a stream that a receiver can begin to read.
#include "check.hpp"
#include "host_stand_in.hpp"

#include "mux/packet_path.hpp"
#include "testbed/idle_muxer.hpp"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <array>

using namespace corvane;
using corvane::fuzz::check;
using corvane::test::Buffer;

namespace {

constexpr int64_t kNone = AV_NOPTS_VALUE;
const Buffer avcc = {1, 100, 0, 40, 0xFF, 0xE1, 0, 2, 0x67, 0xAA, 1, 0, 2, 0x68, 0xBB};

// Mostly a clock that runs on, now and then one that is missing, jumps or is beyond all bounds.
class Clock {
public:
    int64_t next(FuzzedDataProvider &input) {
        switch (input.ConsumeIntegralInRange(0, 7)) {
        case 0:
            return kNone;
        case 1:
            return input.ConsumeIntegral<int64_t>();
        case 2:
            return now_ = input.ConsumeIntegral<int64_t>() / 4;
        case 3:
            return now_ -= input.ConsumeIntegral<uint16_t>();
        case 4:
            return now_;
        default:
            return now_ += input.ConsumeIntegral<uint8_t>();
        }
    }

private:
    int64_t now_ = 0;
};

Buffer make_payload(FuzzedDataProvider &input) {
    static const std::array<Buffer, 6> openings = {Buffer{}, {0, 0, 1}, {0, 0, 0, 1},
        {0, 0, 0, 1, 0x65, 0x88}, {0, 0, 0, 3, 0x65, 0x88, 0x84}, {0, 0, 0, 2, 0x41, 0x9A}};
    Buffer payload = input.PickValueInArray(openings);
    const auto rest = input.ConsumeBytes<uint8_t>(input.ConsumeIntegral<uint8_t>());
    payload.insert(payload.end(), rest.begin(), rest.end());
    return payload;
}

// The path, and what has come out of it so far.
class Stream {
public:
    Stream(bool srt, const Buffer &extradata)
        : muxer_(test::make_muxer(srt, extradata)) {
        begin();
    }

    bool usable() const { return !muxer_.is_srt || muxer_.filter; }

    void begin() {
        path_.begin_stream(muxer_);
        started_ = false;
        last_dts_.fill(kNone);
    }

    void send(encoder_packet packet, const Buffer &payload) {
        const EncodedPacket encoded(packet);
        const bool video = packet.type == OBS_ENCODER_VIDEO;
        const char *failure = video ? path_.process_video_packet(muxer_, encoded)
                                    : path_.process_audio_packet(muxer_, packet.track_idx, encoded);
        const bool filtered = muxer_.is_srt && video && !is_annexb(payload);
        check(!failure || filtered, "only the filter can refuse a packet");
        for (const PacketHandle &out : std::exchange(sent_, {})) {
            check_packet(*out, packet, payload, filtered);
        }
    }

private:
    void check_packet(
        const AVPacket &out, const encoder_packet &in, const Buffer &payload, bool filtered) {
        const bool video = in.type == OBS_ENCODER_VIDEO;
        const AVStream *stream = video ? muxer_.video : muxer_.audio[in.track_idx];
        check(stream && out.stream_index == stream->index, "a packet keeps its track");
        const Bytes bytes = payload_of(out);
        const bool key = (out.flags & AV_PKT_FLAG_KEY) || has_idr(bytes);
        check(started_ || (video && key), "a keyframe is first");
        started_ = true;
        check_times(out, video);

        check(out.size < 1 << 20, "a packet does not grow without bound");
        check(filtered ||
                  std::ranges::equal(bytes.last(std::min(bytes.size(), payload.size())), payload),
            "the payload is whole");
        if (muxer_.is_srt && video) {
            check(has_aud(bytes) && (filtered || is_annexb(bytes)),
                "every access unit has its delimiter");
        } else {
            check(bytes.size() == payload.size(), "nothing is added");
        }
    }

    void check_times(const AVPacket &out, bool video) {
        int64_t &last = last_dts_[static_cast<size_t>(out.stream_index)];
        check(!video || (out.dts != kNone && out.pts != kNone && out.duration >= 1),
            "a picture has its times");
        check(out.dts == kNone || out.pts == kNone || out.pts >= out.dts,
            "nothing is shown before it is decoded");
        check(out.dts == kNone || last == kNone || out.dts > last || last == INT64_MAX,
            "decoding times grow");
        last = out.dts == kNone ? last : out.dts;
    }

    Muxer muxer_;
    std::vector<PacketHandle> sent_;
    PacketPath path_{[this](PacketHandle packet) {
        sent_.push_back(std::move(packet));
        return true;
    }};
    std::array<int64_t, 3> last_dts_ = {};
    bool started_ = false;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::drop_log();
    FuzzedDataProvider input(data, size);
    const bool srt = input.ConsumeBool();
    const Buffer extradata =
        input.ConsumeBool() ? avcc : input.ConsumeBytes<uint8_t>(input.ConsumeIntegral<uint8_t>());
    Stream stream(srt, extradata);
    Clock clock;
    while (stream.usable() && input.remaining_bytes() > 0) {
        if (input.ConsumeIntegral<uint8_t>() == 0xFF) {
            stream.begin();
        }
        encoder_packet packet = {};
        packet.type = input.ConsumeBool() ? OBS_ENCODER_VIDEO : OBS_ENCODER_AUDIO;
        packet.track_idx = input.ConsumeIntegralInRange<size_t>(0, 7);
        packet.keyframe = input.ConsumeBool();
        packet.dts = clock.next(input);
        packet.pts = input.ConsumeBool() ? packet.dts : clock.next(input);
        const bool usual = input.ConsumeBool();
        packet.timebase_num = usual ? 1 : input.ConsumeIntegral<int32_t>();
        packet.timebase_den = usual ? input.PickValueInArray({30, 1000, 48000, 90000})
                                    : input.ConsumeIntegral<int32_t>();
        Buffer payload = make_payload(input);
        packet.data = payload.data();
        packet.size = payload.size();
        stream.send(packet, payload);
    }
    return 0;
}
