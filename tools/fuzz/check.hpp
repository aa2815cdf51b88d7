// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdio>
#include <cstdlib>

namespace corvane::fuzz {

// Ends the run, which makes the fuzzer keep the input that broke the property.
inline void check(bool holds, const char *property) {
    if (!holds) {
        fprintf(stderr, "BROKEN: %s\n", property);
        abort();
    }
}

} // namespace corvane::fuzz
