// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/stream_url.hpp"

#include "base/url.hpp"

#include <algorithm>
#include <cctype>
#include <functional>
#include <ranges>

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

std::string StreamUrl::shown() const {
    return without_secrets(is_srt() ? url : tc_url);
}

std::vector<std::string> secrets_of(const StreamUrl &url) {
    // Anything shorter is part of many words, and no secret; only the key is one at any length.
    constexpr size_t kShortest = 4;
    std::vector<std::string> secrets;
    const auto add = [&secrets](std::string_view text) {
        if (text.size() >= kShortest) {
            secrets.emplace_back(text);
        }
    };
    if (!url.is_srt()) {
        const std::string_view key =
            std::string_view(url.url).substr(std::min(url.url.size(), url.tc_url.size() + 1));
        if (!key.empty() && key.size() < kShortest) {
            secrets.emplace_back(key);
        }
        // Servers and FFmpeg name the stream also without its query and its extension, and take
        // what stands before a slash for the application's.
        for (const char end : {'\0', '?', '.'}) {
            add(key.substr(0, key.find(end)));
        }
        for (const auto part : std::views::split(key, '/')) {
            add(std::string_view(part.begin(), part.end()));
        }
    }
    for (const std::string_view address :
        {std::string_view(url.url), std::string_view(url.tc_url)}) {
        const UrlAuthority authority = authority_of(address);
        if (authority.user_info > 0) {
            add(address.substr(authority.begin, authority.user_info - 1));
        }
        std::string_view query = address.substr(std::min(address.find('?'), address.size()));
        add(query);
        while (!query.empty()) {
            query.remove_prefix(1); // '?' or '&'
            const std::string_view field = query.substr(0, query.find('&'));
            add(field);
            if (const size_t equals = field.find('='); equals != std::string_view::npos) {
                add(field.substr(equals + 1));
            }
            query.remove_prefix(field.size());
        }
    }
    std::ranges::sort(secrets, std::ranges::greater(), &std::string::size);
    return secrets;
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
