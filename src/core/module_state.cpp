// SPDX-License-Identifier: GPL-2.0-or-later
#include "core/module_state.hpp"

namespace corvane {

constinit ModuleState module_state;

} // namespace corvane

obs_module_t *obs_current_module() {
    return corvane::module_state.module;
}
