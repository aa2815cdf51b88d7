// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/resilient/connection_target.hpp"

#include "base/log.hpp"
#include "mux/common/muxer.hpp"

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <array>
#include <cctype>
#include <ranges>
#include <string_view>

namespace corvane {

namespace {

using namespace std::string_view_literals;

constexpr std::array kSchemes = {"rtmp", "rtmps", "rtmpe", "rtmpt", "rtmpte", "rtmpts", "srt"};

// In bytes. FFmpeg refuses longer server URLs; an RTMP message cannot hold a longer text.
constexpr size_t kMaxServer = 1'023;
constexpr size_t kMaxKey = 65'535;

// Whether this FFmpeg can send with it.
bool usable(const std::string &scheme) {
    return std::ranges::find(kSchemes, scheme) != kSchemes.end() &&
           avio_protocol_get_class(scheme.c_str());
}

// FFmpeg knows schemes in lower case only.
std::string scheme_of(std::string_view address) {
    const size_t end = address.find("://");
    std::string scheme(address.substr(0, end == std::string_view::npos ? 0 : end));
    std::ranges::transform(
        scheme, scheme.begin(), [](unsigned char letter) { return std::tolower(letter); });
    return scheme;
}

const char *scheme_objection() {
    static const std::string text = [] {
        std::string list;
        for (const std::string scheme : kSchemes) {
            if (usable(scheme)) {
                list += (list.empty() ? "" : ", ") + scheme + "://";
            }
        }
        return "This address cannot be streamed to — it must begin with one of: " + list;
    }();
    return text.c_str();
}

bool srt_knows(const std::string &option) {
    const AVClass *srt = avio_protocol_get_class("srt");
    return srt && av_opt_find(static_cast<void *>(&srt), option.c_str(), nullptr, 0,
                      AV_OPT_SEARCH_FAKE_OBJ);
}

// FFmpeg refuses the whole address for one unknown option, without naming it.
std::string known_options(std::string_view query) {
    std::string known;
    for (const auto part : std::views::split(query, '&')) {
        const std::string_view field(part.begin(), part.end());
        const size_t equals = field.find('=');
        const std::string name(field.substr(0, equals));
        if (srt_knows(name)) {
            known += (known.empty() ? "?" : "&") + std::string(field);
        } else if (!field.empty()) {
            // Without a value it may be the rest of a passphrase.
            log_warning("SRT option left out, FFmpeg does not know it: %s",
                equals == std::string_view::npos ? "one without a value" : name.c_str());
        }
    }
    return known;
}

// "app/instance?query" of "rtmp://host/app/instance?query".
std::string application_of(std::string_view server) {
    const size_t host = server.find("://") + 3;
    const size_t path = server.find('/', host);
    return std::string(path == std::string_view::npos ? "" : server.substr(path + 1));
}

} // namespace

ConnectionTarget connection_target(const StreamUrl &url) {
    ConnectionTarget target{.address = {}, .options = connection_options(url)};
    const std::string_view address = url.is_srt() ? url.url : url.tc_url;
    const std::string scheme = scheme_of(address);
    target.address = scheme + std::string(address.substr(scheme.size()));
    if (url.is_srt()) {
        if (const size_t query = target.address.find('?'); query != std::string::npos) {
            const std::string known =
                known_options(std::string_view(target.address).substr(query + 1));
            target.address.replace(query, std::string::npos, known);
        }
        return target;
    }
    target.options.set("rtmp_app", application_of(url.tc_url).c_str());
    target.options.set("rtmp_playpath", std::string(url.key()).c_str());
    // The handshake is many short messages.
    target.options.set("tcp_nodelay", "1");
    return target;
}

std::optional<StreamError> objection_to(const StreamUrl &url) {
    if (!usable(scheme_of(url.url))) {
        return StreamError{.message = scheme_objection()};
    }
    if (url.tc_url.size() > kMaxServer) {
        return StreamError{.message = "The server URL is too long"};
    }
    if (url.key().size() > kMaxKey) {
        return StreamError{.message = "The stream key is too long"};
    }
    return std::nullopt;
}

} // namespace corvane
