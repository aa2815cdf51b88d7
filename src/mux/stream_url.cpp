// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/stream_url.hpp"

#include <algorithm>
#include <cctype>

namespace corvane {

namespace {

constexpr std::string_view kSrtScheme = "srt://";

bool is_space(char character) {
    return std::isspace(static_cast<unsigned char>(character)) != 0;
}

bool same_letter(char left, char right) {
    return std::tolower(static_cast<unsigned char>(left)) ==
           std::tolower(static_cast<unsigned char>(right));
}

std::string trimmed(std::string_view text) {
    while (!text.empty() && is_space(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && is_space(text.back())) {
        text.remove_suffix(1);
    }
    return std::string(text);
}

} // namespace

bool StreamUrl::is_srt() const {
    return is_srt_url(url);
}

bool is_srt_url(std::string_view url) {
    return url.size() >= kSrtScheme.size() &&
           std::equal(kSrtScheme.begin(), kSrtScheme.end(), url.begin(), same_letter);
}

StreamUrl build_stream_url(std::string_view server, std::string_view key) {
    const std::string clean_server = trimmed(server);
    const std::string clean_key = trimmed(key);
    if (is_srt_url(clean_server)) {
        return {.url = clean_server, .tc_url = {}};
    }
    if (clean_server.empty() || clean_key.empty()) {
        return {};
    }
    const std::string tc_url = clean_server.substr(0, clean_server.find_last_not_of('/') + 1);
    return {.url = tc_url + "/" + clean_key, .tc_url = tc_url};
}

} // namespace corvane
