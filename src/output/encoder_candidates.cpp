// SPDX-License-Identifier: GPL-2.0-or-later
#include "output/encoder_candidates.hpp"

#include <array>

namespace corvane {

namespace {

constexpr std::array kSoftware = {"obs_x264", "x264"};
constexpr std::array kAmd = {"h264_amf", "obs_x264", "x264"};
constexpr std::array kHardwareFirst = {
    "jim_nvenc", "jim_nvenc_h264", "h264_amf", "obs_qsv11", "obs_qsv11_v2", "obs_x264", "x264"};

} // namespace

// "nvenc" and "qsv" have the software encoders only, on purpose: preferring them never tries
// hardware.
std::span<const char *const> encoder_candidates(std::string_view preferred) {
    if (preferred == "x264" || preferred == "nvenc" || preferred == "qsv") {
        return kSoftware;
    }
    if (preferred == "amf") {
        return kAmd;
    }
    return kHardwareFirst;
}

bool is_x264(std::string_view id) {
    return id == "obs_x264" || id == "x264";
}

} // namespace corvane
