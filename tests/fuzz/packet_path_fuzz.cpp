// SPDX-License-Identifier: GPL-2.0-or-later
// Packets of any content, time and track, behind extradata of any bytes, through preparation and
// gate for both containers: what comes out can be written to a stream that a receiver can begin to
// read.
#include "check.hpp"

#include "support/packet_path_fixture.hpp"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <array>

using namespace corvane;
using namespace corvane::test;
using corvane::fuzz::check;

namespace {

constexpr int64_t kNone = AV_NOPTS_VALUE;

// Mostly a clock that runs on, now and then one that is missing, jumps or is beyond all bounds.
int64_t next_time(int64_t &now, FuzzedDataProvider &input) {
    switch (input.ConsumeIntegralInRange(0, 7)) {
    case 0:
        return kNone;
    case 1:
        return input.ConsumeIntegral<int64_t>();
    case 2:
        return now = input.ConsumeIntegral<int64_t>() / 4;
    case 3:
        return now -= input.ConsumeIntegral<uint16_t>();
    case 4:
        return now;
    default:
        return now += input.ConsumeIntegral<uint8_t>();
    }
}

Buffer make_payload(FuzzedDataProvider &input) {
    static const std::array<Buffer, 6> openings = {Buffer{}, {0, 0, 1}, {0, 0, 0, 1},
        {0, 0, 0, 1, 0x65, 0x88}, {0, 0, 0, 3, 0x65, 0x88, 0x84}, {0, 0, 0, 2, 0x41, 0x9A}};
    const Buffer opening = input.PickValueInArray(openings);
    return opening + input.ConsumeBytes<uint8_t>(input.ConsumeIntegral<uint8_t>());
}

// What must hold for the packets of one stream.
class Stream {
public:
    void check_packet(const AVPacket &out, const encoder_packet &in, const Muxer &muxer) {
        const Bytes payload(in.data, in.size), bytes = payload_of(out);
        const bool video = in.type == OBS_ENCODER_VIDEO;
        const bool filtered = muxer.is_srt && video && !is_annexb(payload);
        const AVStream *stream = video ? muxer.video : muxer.audio[in.track_idx];
        check(stream && out.stream_index == stream->index, "a packet keeps its track");
        const bool key = (out.flags & AV_PKT_FLAG_KEY) || has_idr(bytes);
        check(started_ || (video && key), "a keyframe is first");
        started_ = true;

        int64_t &last = last_dts_[static_cast<size_t>(out.stream_index)];
        check(!video || (out.dts != kNone && out.pts != kNone && out.duration >= 1),
            "a frame has its times");
        check(out.dts == kNone || out.pts == kNone || out.pts >= out.dts,
            "nothing is shown before it is decoded");
        check(out.dts == kNone || last == kNone || out.dts > last || last == INT64_MAX,
            "decoding times grow");
        last = out.dts == kNone ? last : out.dts;

        check(out.size < 1 << 20, "a packet does not grow without bound");
        check(filtered ||
                  std::ranges::equal(bytes.last(std::min(bytes.size(), payload.size())), payload),
            "the payload is whole");
        if (muxer.is_srt && video) {
            check(has_aud(bytes) && (filtered || is_annexb(bytes)),
                "every access unit has its delimiter");
        } else {
            check(bytes.size() == payload.size(), "nothing is added");
        }
    }

private:
    std::array<int64_t, 3> last_dts_ = {kNone, kNone, kNone};
    bool started_ = false;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::drop_log();
    FuzzedDataProvider input(data, size);
    const bool srt = input.ConsumeBool();
    const Buffer extradata =
        input.ConsumeBool() ? kAvcc : input.ConsumeBytes<uint8_t>(input.ConsumeIntegral<uint8_t>());
    PacketPathFixture path(srt, extradata);
    const Block headers = avcc_to_annexb_headers(extradata);
    check(!headers || (extradata[0] == 1 && is_annexb({headers.data.get(), headers.size})),
        "parameter sets come from a record, behind start codes");
    Stream stream;
    int64_t now = 0;
    while (path.usable && input.remaining_bytes() > 0) {
        if (input.ConsumeIntegral<uint8_t>() == 0xFF) {
            path.path.begin_stream(path.muxer);
            stream = {};
        }
        encoder_packet packet = {};
        packet.type = input.ConsumeBool() ? OBS_ENCODER_VIDEO : OBS_ENCODER_AUDIO;
        packet.track_idx = input.ConsumeIntegralInRange<size_t>(0, 7);
        packet.keyframe = input.ConsumeBool();
        packet.dts = next_time(now, input);
        packet.pts = input.ConsumeBool() ? packet.dts : next_time(now, input);
        const bool usual = input.ConsumeBool();
        packet.timebase_num = usual ? 1 : input.ConsumeIntegral<int32_t>();
        packet.timebase_den = usual ? input.PickValueInArray({30, 1000, 48000, 90000})
                                    : input.ConsumeIntegral<int32_t>();
        Buffer payload = make_payload(input);
        packet.data = payload.data();
        packet.size = payload.size();
        check(path.send(packet) || (srt && packet.type == OBS_ENCODER_VIDEO && !is_annexb(payload)),
            "only the filter can refuse a packet");
        for (const PacketHandle &out : path.sent) {
            stream.check_packet(*out, packet, path.muxer);
        }
    }
    return 0;
}
