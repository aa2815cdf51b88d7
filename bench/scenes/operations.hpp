// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "scene_rig.hpp"

namespace corvane::bench {

// Registers a benchmark for each operation on the rig's scenes; each measures for so long.
void register_operations(SceneRig &rig, double seconds);

} // namespace corvane::bench
