// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// The text with each of the secrets replaced by "***".
std::string redact(std::string_view text, const std::vector<std::string> &secrets);

// Keeps secrets out of FFmpeg's log lines. A thread's lines are redacted while it has a Scope:
// secrets are replaced, and lines that may contain parts of them are dropped. The rest goes to the
// host's log.
//
// FFmpeg has one log callback per process. Other code may replace it, so each Scope sets ours
// again; other threads' lines go to FFmpeg's default callback and, as from the host's own outputs,
// to the host's debug log. The last LogRedaction restores FFmpeg's default, unless ours has been
// replaced.
class LogRedaction {
public:
    explicit LogRedaction(std::vector<std::string> secrets);
    ~LogRedaction();
    LogRedaction(const LogRedaction &) = delete;
    LogRedaction &operator=(const LogRedaction &) = delete;

    // For the current thread; not nested.
    class Scope {
    public:
        explicit Scope(const LogRedaction &redaction);
        ~Scope(); // writes an unfinished line
        Scope(const Scope &) = delete;
        Scope &operator=(const Scope &) = delete;

        // The first error that FFmpeg logged in this scope, redacted; empty without one.
        std::string first_error() const;
    };

private:
    const std::vector<std::string> secrets_;
};

} // namespace corvane
