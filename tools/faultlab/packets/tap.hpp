// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <obs.h>

#include <functional>
#include <mutex>

namespace corvane::lab {

// Sits between libobs and the module's output types, which are registered through it.
class Tap {
public:
    static Tap &get();

    // Sees every packet before the output does, on libobs's threads, and may change all but the
    // payload; false swallows the packet. An empty function lets all pass.
    using Change = std::function<bool(encoder_packet &)>;
    void set_change(Change change);

    // Hands the output made last a packet that libobs knows nothing of; null says that an encoder
    // failed.
    void send(encoder_packet *packet);

    // What the wrapped callbacks do.
    void made(void *output, void (*callback)(void *, encoder_packet *));
    void pass(void *output, encoder_packet *packet);

private:
    std::mutex mutex_; // guards everything below; not held while the output is called
    Change change_;
    void *output_ = nullptr;
    void (*callback_)(void *, encoder_packet *) = nullptr;
};

} // namespace corvane::lab
