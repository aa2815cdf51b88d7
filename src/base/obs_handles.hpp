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

} // namespace corvane
