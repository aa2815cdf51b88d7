// SPDX-License-Identifier: GPL-2.0-or-later
// The current profile's options that have no field in the settings dialog. Each change is saved at
// once. UI thread.
#pragma once

#include <cstdint>

namespace corvane {

// Whether a lost connection is made again (the resilient output type).
bool reconnects();

// Rebuilds the runtime for the other output type. While the vertical stream runs that has to wait:
// false then; apply_reconnects(), to be called now and then, does it after the stream's end.
bool set_reconnects(bool enabled);
bool apply_reconnects();

// Whether the active vertical scene follows the host's program scene.
bool follows_program();
void set_follows_program(bool enabled);

// Whether only the host's first audio track is sent. Takes effect with the next start.
bool sends_first_track_only();
void set_sends_first_track_only(bool enabled);

// How many of the host's audio tracks are sent, 1 to 6.
uint32_t audio_tracks();

} // namespace corvane
