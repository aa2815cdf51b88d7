// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// The address a stream is sent to.
struct StreamUrl {
    std::string url;    // empty when there is nothing to connect to
    std::string tc_url; // RTMP: the application's URL; SRT: empty

    bool is_srt() const;

    // The address as others may see it: without the stream key.
    std::string shown() const;
};

// The parts of the address that are secret, the longest first.
std::vector<std::string> secrets_of(const StreamUrl &url);

// Whether the text begins with "srt://", in any letter case.
bool is_srt_url(std::string_view url);

// SRT: the server as it is, the key is not used. RTMP: server without trailing slashes, "/", key;
// empty when either is missing. White space around both is dropped.
StreamUrl build_stream_url(std::string_view server, std::string_view key);

} // namespace corvane
