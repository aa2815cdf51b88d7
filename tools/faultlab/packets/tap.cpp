// SPDX-License-Identifier: GPL-2.0-or-later
#include "tap.hpp"

#include "mux/output_type.hpp"

#include <dlfcn.h>

#include <string_view>
#include <utility>

namespace corvane::lab {

Tap &Tap::get() {
    static Tap tap;
    return tap;
}

void Tap::set_change(Change change) {
    const std::scoped_lock lock(mutex_);
    change_ = std::move(change);
}

void Tap::made(void *output, void (*callback)(void *, encoder_packet *)) {
    const std::scoped_lock lock(mutex_);
    output_ = output;
    callback_ = callback;
}

void Tap::pass(void *output, encoder_packet *packet) {
    std::unique_lock lock(mutex_);
    const auto callback = callback_;
    encoder_packet changed = packet ? *packet : encoder_packet{};
    if (packet && change_ && !change_(changed)) {
        return;
    }
    lock.unlock();
    callback(output, packet ? &changed : nullptr);
}

void Tap::send(encoder_packet *packet) {
    std::unique_lock lock(mutex_);
    const auto callback = callback_;
    void *output = output_;
    lock.unlock();
    callback(output, packet);
}

namespace {

// One of the two types.
template <int Number>
struct Wrapped {
    static inline obs_output_info original = {};

    static void *create(obs_data_t *settings, obs_output_t *output) {
        void *made = original.create(settings, output);
        Tap::get().made(made, original.encoded_packet);
        return made;
    }
    static void packet(void *data, encoder_packet *packet) { Tap::get().pass(data, packet); }

    static obs_output_info wrap(const obs_output_info &info) {
        original = info;
        obs_output_info wrapped = info;
        wrapped.create = create;
        wrapped.encoded_packet = packet;
        return wrapped;
    }
};

} // namespace

} // namespace corvane::lab

// Takes the place of libobs's function for the module's calls, and for those of the host's modules.
void obs_register_output_s(const obs_output_info *info, size_t size) {
    using namespace corvane;
    static const auto original = reinterpret_cast<decltype(&obs_register_output_s)>(
        dlsym(RTLD_NEXT, "obs_register_output_s"));
    obs_output_info registered = *info;
    if (std::string_view(info->id) == kMuxOutputId) {
        registered = lab::Wrapped<0>::wrap(*info);
    } else if (std::string_view(info->id) == kResilientOutputId) {
        registered = lab::Wrapped<1>::wrap(*info);
    }
    original(&registered, size);
}
