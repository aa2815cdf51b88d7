// SPDX-License-Identifier: GPL-2.0-or-later
// A profile's settings file of any bytes: it is read or moved aside as it is, and what was read
// survives a save byte for byte.
#include "check.hpp"
#include "host_stand_in.hpp"

#include "core/config_files.hpp"
#include "core/module_state.hpp"
#include "core/plugin_settings.hpp"
#include "core/runtime.hpp"
#include "mux/stream_url.hpp"
#include "output/vertical_output.hpp"

#include <tuple>

using namespace corvane;
using corvane::fuzz::check;
using corvane::fuzz::HostStandIn;

namespace {

auto all_values() {
    return std::tuple(std::string(settings::rtmpurl.get()), std::string(settings::streamkey.get()),
        settings::videobitrate.get(), settings::canvaswidth.get(), settings::canvasheight.get(),
        settings::fpsnum.get(), settings::fpsden.get(), settings::autostartwithmain.get(),
        std::string(settings::encoderpreset.get()), settings::useactivesceneaudio.get());
}

void check_url() {
    const StreamUrl url = build_stream_url(settings::rtmpurl.get(), settings::streamkey.get());
    check(url.url.empty() || !isspace(static_cast<unsigned char>(url.url.back())),
        "an address ends without blanks");
    check(url.is_srt() ? url.tc_url.empty() : url.url.starts_with(url.tc_url),
        "the application's address opens the stream's");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string content(reinterpret_cast<const char *>(data), size);
    const std::string file = HostStandIn::get().write("corvane-vertical-canvas.ini", content);
    const std::string aside = file + ".damaged";
    std::filesystem::remove(aside);
    load_profile_config();
    check(module_state.profile_config, "there is a file to save to");
    check(!std::filesystem::exists(aside) || HostStandIn::read(aside) == content,
        "a damaged file is kept as it was");
    const auto values = all_values();
    check_url();
    check(!create_runtime_from_current_profile(), "no canvas without the host's video");

    VerticalOutput output(nullptr, {});
    module_state.output = &output;
    save_profile_config();
    module_state.output = nullptr;
    load_profile_config();
    check(all_values() == values, "a save keeps every value");
    close_config_files();
    return 0;
}
