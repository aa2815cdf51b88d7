// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// Each of the secrets in the text replaced by "***".
std::string hide(std::string_view text, const std::vector<std::string> &secrets);

// Keeps secrets out of what FFmpeg logs on the thread that this object is made on, as long as it
// lives: they are replaced, and lines below the level "info" are left out, which hold them in
// parts.
//
// FFmpeg has one log callback in a process. The first object puts its own in the place of the
// host's, for good: nothing tells which one was there. Other threads' lines go to the host's log
// as they did before.
class DiscreetLog {
public:
    explicit DiscreetLog(std::vector<std::string> secrets);
    ~DiscreetLog();
    DiscreetLog(const DiscreetLog &) = delete;
    DiscreetLog &operator=(const DiscreetLog &) = delete;

private:
    const std::vector<std::string> secrets_;
};

} // namespace corvane
