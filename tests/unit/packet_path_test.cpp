// SPDX-License-Identifier: GPL-2.0-or-later
// Packets through preparation and gate into the queue, with a muxer that is never connected.
#include "mux/packet_path.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

using namespace corvane;
using Buffer = std::vector<uint8_t>;

namespace {

constexpr int64_t kNone = AV_NOPTS_VALUE;
const Buffer kAvcc = {1, 100, 0, 40, 0xFF, 0xE1, 0, 2, 0x67, 0xAA, 1, 0, 2, 0x68, 0xBB};
const Buffer kAud = {0, 0, 0, 1, 0x09, 0xF0};
const Buffer kSets = {0, 0, 0, 1, 0x67, 0xAA, 0, 0, 0, 1, 0x68, 0xBB};
const Buffer kIdr = {0, 0, 0, 1, 0x65, 0x88, 0x84};
const Buffer kSlice = {0, 0, 0, 1, 0x41, 0x9A, 0x24};

Buffer operator+(Buffer left, const Buffer &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

AVStream *add_stream(AVFormatContext *context, AVRational time_base, const Buffer &extradata) {
    AVStream *stream = avformat_new_stream(context, nullptr);
    stream->time_base = time_base;
    stream->avg_frame_rate = {30, 1};
    stream->codecpar->codec_id = AV_CODEC_ID_H264;
    stream->codecpar->sample_rate = 48000;
    stream->codecpar->extradata =
        static_cast<uint8_t *>(av_mallocz(extradata.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    std::ranges::copy(extradata, stream->codecpar->extradata);
    stream->codecpar->extradata_size = static_cast<int>(extradata.size());
    return stream;
}

Muxer make_muxer(bool srt, const Buffer &extradata) {
    Muxer muxer;
    AVFormatContext *context = nullptr;
    avformat_alloc_output_context2(&context, nullptr, srt ? "mpegts" : "flv", nullptr);
    muxer.context.reset(context);
    muxer.is_srt = srt;
    const AVRational time_base = srt ? AVRational{1, 90000} : AVRational{1, 1000};
    muxer.video = add_stream(context, time_base, extradata);
    muxer.audio[0] = add_stream(context, time_base, {});
    muxer.audio[2] = add_stream(context, time_base, {});
    if (srt) {
        AVBSFContext *filter = nullptr;
        av_bsf_alloc(av_bsf_get_by_name("h264_mp4toannexb"), &filter);
        muxer.filter.reset(filter);
        avcodec_parameters_copy(filter->par_in, muxer.video->codecpar);
        filter->time_base_in = time_base;
        EXPECT_EQ(av_bsf_init(filter), 0);
    }
    return muxer;
}

struct Queued {
    Buffer payload;
    int stream;
    int64_t pts, dts, duration;
    bool key;
    bool operator==(const Queued &) const = default;
};

class Path {
public:
    explicit Path(bool srt, const Buffer &extradata = kAvcc)
        : muxer_(make_muxer(srt, extradata)) {
        queue_.start();
        path_.begin_stream(muxer_);
    }

    void video(const Buffer &payload, int64_t pts, int64_t dts, bool keyframe) {
        EXPECT_EQ(
            path_.process_video_packet(muxer_, packet(payload, pts, dts, 30, keyframe)), nullptr);
    }

    void audio(size_t slot, int64_t timestamp) {
        const EncodedPacket encoded = packet({1, 2}, timestamp, timestamp, 48000, false);
        EXPECT_EQ(path_.process_audio_packet(muxer_, slot, encoded), nullptr);
    }

    // The packet queued last; a packet of stream -1 when nothing was queued.
    Queued next() {
        queue_.push(PacketHandle(av_packet_alloc())); // an end mark, so that a wait ends
        const PacketHandle packet = queue_.wait_pop();
        const bool end_mark = packet->size == 0;
        if (!end_mark) {
            while (queue_.wait_pop()->size != 0) {
                ADD_FAILURE() << "more than one packet was queued";
            }
        }
        const Bytes bytes = payload_of(*packet);
        return {Buffer(bytes.begin(), bytes.end()), end_mark ? -1 : packet->stream_index,
            packet->pts, packet->dts, packet->duration, (packet->flags & AV_PKT_FLAG_KEY) != 0};
    }

    bool empty() { return next().stream == -1; }

private:
    EncodedPacket packet(
        const Buffer &payload, int64_t pts, int64_t dts, int32_t rate, bool keyframe) {
        payload_ = payload;
        encoder_packet host = {};
        host.data = payload_.data();
        host.size = payload_.size();
        host.pts = pts;
        host.dts = dts;
        host.timebase_num = 1;
        host.timebase_den = rate;
        host.keyframe = keyframe;
        return EncodedPacket(host);
    }

    Muxer muxer_;
    PacketQueue queue_;
    PacketPath path_{queue_};
    Buffer payload_;
};

} // namespace

// A stream that begins with anything else cannot be decoded by a receiver.
TEST(MpegTsPath, opens_with_a_complete_idr_and_lets_nothing_pass_before) {
    Path early(true);
    early.video(kSlice, 0, 0, false);
    early.audio(0, 0);
    early.video(kSlice, 1, 1, true); // flagged as a keyframe, but no IDR
    EXPECT_TRUE(early.empty());

    Path path(true);
    path.video(kIdr, 90, 90, true);
    EXPECT_EQ(path.next(), (Queued{kAud + kSets + kIdr, 0, 0, 0, 3000, true}));
    // The base is overwritten by rebased values: later packets keep the encoder's timestamps.
    path.video(kSlice, 91, 91, false);
    EXPECT_EQ(path.next(), (Queued{kAud + kSlice, 0, 273000, 273000, 3000, false}));
    path.audio(0, 1024);
    EXPECT_EQ(path.next(), (Queued{{1, 2}, 1, 0, 0, 1920, false}));
}

// Parameter sets and delimiters that the encoder gave already must not stand there twice.
TEST(MpegTsPath, adds_only_what_an_access_unit_lacks) {
    Path annexb_header(true, kSets);
    annexb_header.video(kSets + kIdr, 0, 0, true);
    EXPECT_EQ(annexb_header.next().payload, kAud + kSets + kIdr);
    Path complete(true);
    complete.video(kAud + kIdr, 0, 0, true);
    EXPECT_EQ(complete.next().payload, kSets + kAud + kIdr);
    complete.video(kAud + kIdr, 1, 1, true);
    EXPECT_EQ(complete.next().payload, kAud + kIdr);
}

// Hardware encoders may give length-prefixed units, which MPEG-TS cannot carry.
TEST(MpegTsPath, converts_length_prefixed_units) {
    Path path(true);
    path.video({0, 0, 0, 3, 0x65, 0x88, 0x84}, 60, 60, true);
    const Queued first = path.next();
    EXPECT_EQ(
        Buffer(first.payload.begin(), first.payload.begin() + 10), kAud + Buffer({0, 0, 0, 1}));
    EXPECT_TRUE(has_idr(first.payload));
    EXPECT_EQ(nal_types_string(first.payload, 20), "[9,7,8,5]");
    EXPECT_EQ(first.dts, 0);
    EXPECT_TRUE(first.key);
    path.video({0, 0, 0, 3, 0x41, 0x9A, 0x24}, 61, 61, false);
    EXPECT_EQ(path.next(), (Queued{kAud + kSlice, 0, 183000, 183000, 3000, false}));
}

// FLV carries the encoder's own payload; audio may not start before the picture.
TEST(FlvPath, starts_at_a_keyframe_and_keeps_the_payload) {
    Path path(false);
    path.video(kSlice, 0, 0, false);
    path.audio(0, 0);
    EXPECT_TRUE(path.empty());
    path.video(kIdr, 3, 3, true);
    EXPECT_EQ(path.next(), (Queued{kIdr, 0, 100, 100, 33, true}));
    path.video(kSlice, 3, 3, false);
    EXPECT_EQ(path.next(), (Queued{kSlice, 0, 101, 101, 33, false})) << "an equal dts passed";
    path.video(kSlice, kNone, kNone, false);
    EXPECT_EQ(path.next(), (Queued{kSlice, 0, 134, 134, 33, false})) << "no dts was made up";
}

// Tracks start at different times and some slots have no stream.
TEST(FlvPath, rebases_each_audio_track_to_its_own_start) {
    Path path(false);
    path.video(kIdr, 0, 0, true);
    path.next();
    path.audio(2, 4800);
    EXPECT_EQ(path.next(), (Queued{{1, 2}, 2, 0, 0, 0, false}));
    path.audio(0, 9600);
    EXPECT_EQ(path.next(), (Queued{{1, 2}, 1, 0, 0, 0, false}));
    path.audio(2, 9600);
    EXPECT_EQ(path.next(), (Queued{{1, 2}, 2, 100, 100, 0, false}));
    path.audio(1, 0);
    path.audio(6, 0);
    EXPECT_TRUE(path.empty());
}
