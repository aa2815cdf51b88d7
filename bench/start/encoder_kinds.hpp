// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

namespace corvane::bench {

// Makes libobs know a video encoder of that id which
// "works"    gives pictures of a few bytes,
// "fails"    does not open, as with a driver that finds no hardware, or
// "refused"  cannot even be made an object of.
// Throws for any other kind.
void register_encoder(const std::string &id, const std::string &kind);

} // namespace corvane::bench
