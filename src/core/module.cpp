// SPDX-License-Identifier: GPL-2.0-or-later
// The functions that the host finds in the module by name. Their declarations in obs-module.h
// give them C linkage and default visibility.
#include "core/lifecycle.hpp"
#include "core/module_state.hpp"

#include <obs-module.h>

using corvane::module_state;

bool obs_module_load() {
    return corvane::load_module();
}

void obs_module_unload() {
    corvane::unload_module();
}

// These two are declared only by a macro that would pin the version to the headers' own.
MODULE_EXPORT void obs_module_set_pointer(obs_module_t *module) {
    module_state.module = module;
}

// Fixed instead of taken from the headers: the host refuses a module built for a newer version
// than its own, and every 32.x has all that is used here.
MODULE_EXPORT uint32_t obs_module_ver() {
    return MAKE_SEMANTIC_VERSION(32, 0, 4);
}

const char *obs_module_name() {
    return "Corvane Vertical Canvas";
}

const char *obs_module_description() {
    return "Vertical canvas streams a second 9:16 RTMP output simultaneously";
}

void obs_module_set_locale(const char *locale) {
    text_lookup_destroy(module_state.locale_lookup);
    module_state.locale_lookup = obs_module_load_locale(obs_current_module(), "en-US", locale);
}

void obs_module_free_locale() {
    text_lookup_destroy(module_state.locale_lookup);
    module_state.locale_lookup = nullptr;
}

bool obs_module_get_string(const char *lookup_string, const char **translated_string) {
    return text_lookup_getstr(module_state.locale_lookup, lookup_string, translated_string);
}
