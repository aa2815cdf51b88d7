// SPDX-License-Identifier: GPL-2.0-or-later
#include "base/url.hpp"

#include <algorithm>

namespace corvane {

UrlAuthority authority_of(std::string_view url) {
    const size_t scheme = url.find("://");
    const size_t begin = scheme == std::string_view::npos ? 0 : scheme + 3;
    const size_t end = std::min(url.find_first_of("/?", begin), url.size());
    const size_t at = url.substr(begin, end - begin).rfind('@');
    return {.begin = begin,
        .size = end - begin,
        .user_info = at == std::string_view::npos ? 0 : at + 1};
}

std::string host_of(std::string_view url) {
    const UrlAuthority authority = authority_of(url);
    std::string_view host = url.substr(authority.begin, authority.size);
    host.remove_prefix(authority.user_info);
    if (host.starts_with('[')) {
        host.remove_prefix(1);
        return std::string(host.substr(0, host.find(']')));
    }
    return std::string(host.substr(0, host.find(':')));
}

std::string without_secrets(std::string_view url) {
    url = url.substr(0, url.find('?'));
    const UrlAuthority authority = authority_of(url);
    std::string shown(url);
    return shown.erase(authority.begin, authority.user_info);
}

} // namespace corvane
