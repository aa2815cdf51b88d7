// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// The text with each of the secrets replaced by "***".
std::string redact(std::string_view text, const std::vector<std::string> &secrets);

// Keeps secrets out of FFmpeg's log lines. A thread's lines are redacted while it has a Scope: the
// secrets are replaced, and lines that can hold parts of them are left out. What remains goes to
// the host's log.
//
// FFmpeg has one log callback in a process. Other code sets its own now and then, so each Scope
// sets ours anew; other threads' lines go to FFmpeg's default callback and, as from the host's own
// outputs, to the host's debug log. The last LogRedaction puts FFmpeg's default back, unless
// somebody else has replaced ours.
class LogRedaction {
public:
    explicit LogRedaction(std::vector<std::string> secrets);
    ~LogRedaction();
    LogRedaction(const LogRedaction &) = delete;
    LogRedaction &operator=(const LogRedaction &) = delete;

    // On one thread at a time; not nested.
    class Scope {
    public:
        explicit Scope(const LogRedaction &redaction);
        ~Scope(); // writes a line that FFmpeg has not finished
        Scope(const Scope &) = delete;
        Scope &operator=(const Scope &) = delete;
    };

private:
    const std::vector<std::string> secrets_;
};

} // namespace corvane
