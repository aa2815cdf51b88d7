// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/connection.hpp"

namespace corvane {

namespace {

bool needs_connection(const AVFormatContext &context) {
    return !(context.oformat->flags & AVFMT_NOFILE);
}

} // namespace

Dictionary connection_options(const StreamUrl &url) {
    Dictionary options;
    if (url.is_srt()) {
        options.set("flush_packets", "1");
        options.set("mpegts_flags", "+resend_headers");
        return options;
    }
    options.set("rtmp_live", "live");
    options.set("flvflags", "no_duration_filesize");
    options.set("rtmp_flashver", "FMLE/3.0 (compatible; FMSc/1.0)");
    options.set("rtmp_tcurl", url.tc_url.c_str());
    options.set("rtmp_swfurl", url.tc_url.c_str());
    options.set("rtmp_pageurl", "");
    return options;
}

int open_connection(AVFormatContext &context, const StreamUrl &url, Dictionary &options) {
    if (!needs_connection(context)) {
        return 0;
    }
    const int result = avio_open2(
        &context.pb, url.url.c_str(), AVIO_FLAG_WRITE, &context.interrupt_callback, options.get());
    return result < 0 ? result : 0;
}

void close_connection(AVFormatContext &context) {
    if (needs_connection(context)) {
        avio_closep(&context.pb);
    }
}

} // namespace corvane
