// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <obs.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// The address a stream is sent to.
struct StreamUrl {
    std::string url;    // empty when there is nothing to connect to
    std::string tc_url; // RTMP: the application's URL; SRT: empty

    bool is_srt() const;

    // Whether the other side connects to us ("mode=listener").
    bool is_srt_listener() const;

    // RTMP: the stream key; SRT: empty.
    std::string_view key() const;

    // The address without its secrets, the stream key included.
    std::string shown() const;
};

struct FrameRate {
    uint32_t num = 30;
    uint32_t den = 1;
};

// The settings of an output.
struct StreamSettings {
    StreamUrl url;
    FrameRate frame_rate;

    // A frame rate that is missing or not positive leaves the previous one.
    void read(obs_data_t *settings);
};

// The error of an output whose settings give no address.
inline constexpr const char *kMissingUrl = "Missing RTMP server/key";

// SRT: the server as it is, without the key. RTMP: the server without trailing slashes, "/", key;
// empty when either is missing. White space around both is dropped.
StreamUrl rebuild_url(std::string_view server, std::string_view key);

// Whether the text begins with "srt://", in any letter case.
bool is_srt_url(std::string_view url);

// The URL without user, password and query, which may be secret.
std::string without_secrets(std::string_view url);

// The server as it may be logged. Without a key its path may be one, so only the host is left.
std::string shown_server(std::string_view server, std::string_view key);

// The secret parts of the address, longest first.
std::vector<std::string> secrets_of(const StreamUrl &url);

} // namespace corvane
