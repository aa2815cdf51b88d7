// SPDX-License-Identifier: GPL-2.0-or-later
// Owning types for FFmpeg's objects.
#pragma once

extern "C" {
#include <libavcodec/bsf.h>
#include <libavcodec/packet.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
}

#include <memory>
#include <string>

namespace corvane {

struct FreePacket {
    void operator()(AVPacket *packet) const { av_packet_free(&packet); }
};
using PacketHandle = std::unique_ptr<AVPacket, FreePacket>;

// Also closes the context's I/O.
struct FreeFormatContext {
    void operator()(AVFormatContext *context) const {
        if (context->oformat && !(context->oformat->flags & AVFMT_NOFILE)) {
            avio_closep(&context->pb);
        }
        avformat_free_context(context);
    }
};
using FormatContextHandle = std::unique_ptr<AVFormatContext, FreeFormatContext>;

struct FreeBitstreamFilter {
    void operator()(AVBSFContext *filter) const { av_bsf_free(&filter); }
};
using BitstreamFilterHandle = std::unique_ptr<AVBSFContext, FreeBitstreamFilter>;

struct FreeBlock {
    void operator()(uint8_t *block) const { av_free(block); }
};
// A block from av_malloc and its length in bytes.
struct Block {
    std::unique_ptr<uint8_t, FreeBlock> data;
    size_t size = 0;
    explicit operator bool() const { return data != nullptr; }
};

class Dictionary {
public:
    Dictionary() = default;
    ~Dictionary() { av_dict_free(&entries_); }
    Dictionary(Dictionary &&other) noexcept
        : entries_(other.entries_) {
        other.entries_ = nullptr;
    }
    Dictionary(const Dictionary &) = delete;
    Dictionary &operator=(const Dictionary &) = delete;
    Dictionary &operator=(Dictionary &&) = delete;

    void set(const char *key, const char *value) { av_dict_set(&entries_, key, value, 0); }

    // For FFmpeg's calls, which take out the options they understand.
    AVDictionary **get() { return &entries_; }

private:
    AVDictionary *entries_ = nullptr;
};

// FFmpeg's text for an error code.
inline std::string error_text(int code) {
    char text[256] = {};
    av_strerror(code, text, sizeof(text));
    return text;
}

} // namespace corvane
