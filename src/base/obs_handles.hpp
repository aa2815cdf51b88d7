// SPDX-License-Identifier: GPL-2.0-or-later
// Owning types for the libobs objects that obs.hpp has none for.
#pragma once

#include <obs.hpp>
#include <util/bmem.h>
#include <util/config-file.h>

#include <memory>

namespace corvane {

template <auto Release>
struct ReleaseWith {
    template <typename T>
    void operator()(T *object) const {
        Release(object);
    }
};

// A string or block allocated by the host.
using HostString = std::unique_ptr<char, ReleaseWith<bfree>>;
using ViewHandle = std::unique_ptr<obs_view_t, ReleaseWith<obs_view_destroy>>;
using ConfigHandle = std::unique_ptr<config_t, ReleaseWith<config_close>>;

// What is handed to a signal or procedure and what comes back.
class Calldata {
public:
    Calldata() { calldata_init(&data_); }
    ~Calldata() { calldata_free(&data_); }
    Calldata(const Calldata &) = delete;
    Calldata &operator=(const Calldata &) = delete;

    calldata_t *get() { return &data_; }

private:
    calldata_t data_{};
};

} // namespace corvane
