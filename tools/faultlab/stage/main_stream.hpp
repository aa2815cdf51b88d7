// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <obs.hpp>

#include <string>

namespace corvane::lab {

inline constexpr const char *kMainOutputType = "rtmp_output";

// The host's own stream, from the host's own encoders, service and output.
class MainStream {
public:
    // Throws when the stream cannot be started. UI thread.
    explicit MainStream(const std::string &server);
    // Returns when the output is no longer active.
    ~MainStream();
    MainStream(const MainStream &) = delete;
    MainStream &operator=(const MainStream &) = delete;

private:
    OBSServiceAutoRelease service_;
    OBSEncoderAutoRelease video_;
    OBSEncoderAutoRelease audio_;
    OBSOutputAutoRelease output_;
};

} // namespace corvane::lab
