// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "recording.hpp"
#include "replay.hpp"

#include <obs.hpp>

#include <optional>
#include <string>

namespace corvane::bench {

// An output that is measured, with replay encoders.
//   standard, resilient   the module's types
//   host-rtmp, host-srt   the host's own
//   floor                 see floor.hpp
class Target {
public:
    // libobs's id of the output type; throws when there is no such target.
    static const char *type_of(const std::string &name);

    // Loads the host's modules that its own outputs need and registers what is not the host's.
    static void register_types();

    Target(const std::string &name, const std::string &url, const std::string &key,
        const Shape &shape);
    ~Target();
    Target(const Target &) = delete;
    Target &operator=(const Target &) = delete;

    // Returns when packets are taken; throws when that never comes.
    void start();
    void stop();

    // Throws when the output has ended by itself.
    void check() const;

    const ReplayEncoders &encoders() const { return *encoders_; }
    int frames_dropped() const { return obs_output_get_frames_dropped(output_); }

private:
    OBSServiceAutoRelease service_;
    std::optional<ReplayEncoders> encoders_;
    OBSOutputAutoRelease output_;
};

} // namespace corvane::bench
