// SPDX-License-Identifier: GPL-2.0-or-later
// Owning types for the libobs objects that obs.hpp has none for.
#pragma once

#include <obs.hpp>
#include <util/bmem.h>

#include <memory>

namespace corvane {

template <auto Release>
struct ReleaseWith {
    template <typename T>
    void operator()(T *object) const {
        Release(object);
    }
};

// A string allocated by libobs (bmalloc).
using HostString = std::unique_ptr<char, ReleaseWith<bfree>>;
using ViewHandle = std::unique_ptr<obs_view_t, ReleaseWith<obs_view_destroy>>;

// Parameters and results of a signal or procedure.
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
