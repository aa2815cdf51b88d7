// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <string_view>

namespace corvane {

// "<base>_<seconds since the Unix epoch>_<process-wide counter from 0>". Any thread.
std::string make_unique_name(std::string_view base);

} // namespace corvane
