// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/common/stream_url.hpp"

#include <algorithm>
#include <cctype>
#include <functional>
#include <ranges>

namespace corvane {

namespace {

using namespace std::string_view_literals;

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

// Where "user:password@host:port" is in a URL, in bytes.
struct UrlAuthority {
    size_t begin;
    size_t size;
    size_t user_info; // length of "user:password@"
};

UrlAuthority authority_of(std::string_view url) {
    const size_t scheme = url.find("://");
    const size_t begin = scheme == std::string_view::npos ? 0 : scheme + 3;
    const size_t end = std::min(url.find_first_of("/?", begin), url.size());
    const size_t at = url.substr(begin, end - begin).rfind('@');
    return {.begin = begin,
        .size = end - begin,
        .user_info = at == std::string_view::npos ? 0 : at + 1};
}

} // namespace

bool StreamUrl::is_srt() const {
    return is_srt_url(url);
}

bool StreamUrl::is_srt_listener() const {
    const std::string_view whole(url);
    const std::string_view query = whole.substr(std::min(whole.find('?') + 1, whole.size()));
    return is_srt() && std::ranges::any_of(std::views::split(query, '&'),
                           [](auto field) { return std::ranges::equal(field, "mode=listener"sv); });
}

std::string_view StreamUrl::key() const {
    const std::string_view whole(url);
    return is_srt() ? std::string_view() : whole.substr(std::min(whole.size(), tc_url.size() + 1));
}

std::string StreamUrl::shown() const {
    return without_secrets(is_srt() ? url : tc_url);
}

void StreamSettings::read(obs_data_t *settings) {
    const char *server = obs_data_get_string(settings, "server");
    const char *key = obs_data_get_string(settings, "key");
    url = rebuild_url(server ? server : "", key ? key : "");
    const long long num = obs_data_get_int(settings, "fps_num");
    const long long den = obs_data_get_int(settings, "fps_den");
    if (num > 0) {
        frame_rate.num = static_cast<uint32_t>(num);
    }
    if (den >= 1) {
        frame_rate.den = static_cast<uint32_t>(den);
    }
}

StreamUrl rebuild_url(std::string_view server, std::string_view key) {
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

bool is_srt_url(std::string_view url) {
    return url.size() >= kSrtScheme.size() &&
           std::equal(kSrtScheme.begin(), kSrtScheme.end(), url.begin(), same_letter);
}

std::string without_secrets(std::string_view url) {
    url = url.substr(0, url.find('?'));
    const UrlAuthority authority = authority_of(url);
    std::string shown(url);
    return shown.erase(authority.begin, authority.user_info);
}

std::string shown_server(std::string_view server, std::string_view key) {
    std::string shown = without_secrets(server);
    if (is_srt_url(trimmed(server)) || !trimmed(key).empty()) {
        return shown;
    }
    const UrlAuthority authority = authority_of(shown);
    const size_t path = authority.begin + authority.size + 1; // after the slash
    return path < shown.size() ? shown.replace(path, std::string::npos, "***") : shown;
}

std::vector<std::string> secrets_of(const StreamUrl &url) {
    // Shorter texts are parts of many words; only the key is secret at any length.
    constexpr size_t kShortest = 4;
    std::vector<std::string> secrets;
    const auto add = [&secrets](std::string_view text) {
        if (text.size() >= kShortest) {
            secrets.emplace_back(text);
        }
    };
    if (!url.is_srt()) {
        const std::string_view key = url.key();
        if (!key.empty() && key.size() < kShortest) {
            secrets.emplace_back(key);
        }
        // Servers and FFmpeg also log the key without its query or extension, and count what is
        // before a slash to the application.
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

} // namespace corvane
