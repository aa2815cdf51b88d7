// SPDX-License-Identifier: GPL-2.0-or-later
#include "core/remote_settings.hpp"

#include "core/options.hpp"
#include "core/plugin_settings.hpp"
#include "core/remote_requests.hpp"
#include "core/runtime.hpp"
#include "core/setting_limits.hpp"
#include "mux/common/stream_url.hpp"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

namespace corvane {

namespace {

// One field: how it is read into an answer, checked and stored.
struct Field {
    const char *name;
    obs_data_type type;
    void (*read)(obs_data_t *answer, const char *name); // null for a secret
    bool (*accepts)(obs_data_item_t *item);             // of a value of that type
    void (*store)(obs_data_item_t *item);
};

template <const auto &Key, const SettingRange &Range,
    auto Read =
        [] {
            return Key.get();
        }>
constexpr Field number(const char *name) {
    return {.name = name,
        .type = OBS_DATA_NUMBER,
        .read = [](obs_data_t *answer,
                    const char *field) { obs_data_set_int(answer, field, Read()); },
        .accepts =
            [](obs_data_item_t *item) {
                const long long value = obs_data_item_get_int(item);
                const bool even = &Range != &kSizeRange || value % kSizeRange.step == 0;
                return value >= Range.least && value <= Range.most && even &&
                       static_cast<double>(value) == obs_data_item_get_double(item);
            },
        .store =
            [](obs_data_item_t *item) {
                Key.set(static_cast<uint32_t>(obs_data_item_get_int(item)));
            }};
}

template <auto Read, auto Store>
constexpr Field flag(const char *name) {
    return {.name = name,
        .type = OBS_DATA_BOOLEAN,
        .read = [](obs_data_t *answer,
                    const char *field) { obs_data_set_bool(answer, field, Read()); },
        .accepts = [](obs_data_item_t *) { return true; },
        .store = [](obs_data_item_t *item) { Store(obs_data_item_get_bool(item)); }};
}

constexpr SettingRange kTracksRange{.least = 1, .most = OutputConfig::kMaxAudioTracks};

constexpr std::array kFields = {
    Field{.name = "url",
        .type = OBS_DATA_STRING,
        .read =
            [](obs_data_t *answer, const char *field) {
                obs_data_set_string(answer, field,
                    shown_server(settings::rtmpurl.get(), settings::streamkey.get()).c_str());
            },
        .accepts =
            [](obs_data_item_t *item) {
                const std::string url = obs_data_item_get_string(item);
                return url.size() <= kLongestText &&
                       url.find_first_not_of(" \t\r\n") != std::string::npos;
            },
        .store =
            [](obs_data_item_t *item) { settings::rtmpurl.set(obs_data_item_get_string(item)); }},
    Field{.name = "streamKey",
        .type = OBS_DATA_STRING,
        .read = nullptr,
        .accepts =
            [](obs_data_item_t *item) {
                return std::string_view(obs_data_item_get_string(item)).size() <= kLongestText;
            },
        .store =
            [](obs_data_item_t *item) { settings::streamkey.set(obs_data_item_get_string(item)); }},
    Field{.name = "encoderPreset",
        .type = OBS_DATA_STRING,
        .read =
            [](obs_data_t *answer, const char *field) {
                obs_data_set_string(answer, field, settings::encoderpreset.get());
            },
        .accepts =
            [](obs_data_item_t *item) {
                const std::string preset = obs_data_item_get_string(item);
                return std::ranges::find(kEncoderPresets, preset) != kEncoderPresets.end();
            },
        .store =
            [](obs_data_item_t *item) {
                settings::encoderpreset.set(obs_data_item_get_string(item));
            }},
    number<settings::videobitrate, kBitrateRange>("videoBitrate"),
    number<settings::canvaswidth, kSizeRange>("canvasWidth"),
    number<settings::canvasheight, kSizeRange>("canvasHeight"),
    number<settings::fpsnum, kFpsNumRange>("fpsNum"),
    number<settings::fpsden, kFpsDenRange>("fpsDen"),
    number<settings::audiotracks, kTracksRange, audio_tracks>("audioTracks"),
    flag<[] { return settings::autostartwithmain.get(); },
        [](bool value) {
            settings::autostartwithmain.set(value);
        }>("autoStartWithMain"),
    flag<[] { return settings::useactivesceneaudio.get(); },
        [](bool value) {
            settings::useactivesceneaudio.set(value);
        }>("useActiveSceneAudio"),
    flag<reconnects, set_reconnects>("reconnectAutomatically"),
    flag<follows_program, set_follows_program>("followProgramScene"),
};

// Calls the function with each field of the request and its item.
template <typename Function>
void for_each_field(obs_data_t *request, Function function) {
    for (obs_data_item_t *item = obs_data_first(request); item; obs_data_item_next(&item)) {
        const std::string name = obs_data_item_get_name(item);
        const auto field = std::ranges::find(kFields, name, &Field::name);
        if (field == kFields.end()) {
            obs_data_item_release(&item);
            throw RequestError("Unknown field: " + name);
        }
        function(*field, item);
    }
}

} // namespace

void write_settings(obs_data_t *data) {
    for (const Field &field : kFields) {
        if (field.read) {
            field.read(data, field.name);
        }
    }
}

void store_settings(obs_data_t *request) {
    std::string objection;
    for_each_field(request, [&](const Field &field, obs_data_item_t *item) {
        if (obs_data_item_gettype(item) != field.type) {
            objection = std::string("Wrong type: ") + field.name;
        } else if (!field.accepts(item)) {
            objection = std::string("Value out of range: ") + field.name;
        }
    });
    if (!objection.empty()) {
        throw RequestError(objection);
    }
    for_each_field(request, [](const Field &field, obs_data_item_t *item) { field.store(item); });
    save_profile_config();
}

} // namespace corvane
