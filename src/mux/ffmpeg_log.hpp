// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// Each of the secrets in the text replaced by "***".
std::string hide(std::string_view text, const std::vector<std::string> &secrets);

// Keeps secrets out of what FFmpeg logs on this thread, as long as this object lives: they are
// replaced, and lines that can hold parts of them are left out. What remains goes to the host's
// log.
//
// FFmpeg has one log callback in a process. Others in the process set theirs now and then, so each
// object sets ours anew, for good; other threads' lines go where FFmpeg itself sends them and
// where the host's own outputs do: into the host's debug log.
class DiscreetLog {
public:
    // The secrets must outlive this object.
    explicit DiscreetLog(const std::vector<std::string> &secrets);
    ~DiscreetLog();
    DiscreetLog(const DiscreetLog &) = delete;
    DiscreetLog &operator=(const DiscreetLog &) = delete;
};

} // namespace corvane
