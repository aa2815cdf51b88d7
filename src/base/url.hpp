// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace corvane {

// Where "user:password@host:port" stands in a URL, in bytes.
struct UrlAuthority {
    size_t begin;
    size_t size;
    size_t user_info; // its part up to and with '@'
};
UrlAuthority authority_of(std::string_view url);

// The host's name or address; empty without one.
std::string host_of(std::string_view url);

// The URL without what may be secret in it: user and password, and the query.
std::string without_secrets(std::string_view url);

} // namespace corvane
