// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "canvas/vertical_canvas.hpp"
#include "output/vertical_output.hpp"
#include "ui/vertical_dock.hpp"

#include <obs.hpp>

#include <QTemporaryDir>

#include <optional>
#include <string>
#include <vector>

namespace corvane::bench {

// As many scenes of the user's as vertical scenes, each of these showing one of those, the file
// that they are saved in, and a dock on the screen.
class SceneRig {
public:
    SceneRig(int count, bool active_audio);
    ~SceneRig();
    SceneRig(const SceneRig &) = delete;
    SceneRig &operator=(const SceneRig &) = delete;

    static std::string scene(int index) { return "Vertical scene " + std::to_string(index); }
    static std::string source(int index) { return "Host scene " + std::to_string(index); }
    std::string last() const { return scene(count - 1); }

    void fill();  // from "Scene 1" alone
    void empty(); // back to it; returns when libobs has destroyed the scenes

    const int count;
    VerticalCanvas canvas;
    std::optional<VerticalOutput> output;
    std::optional<VerticalDock> dock;

    // Bytes of the heap that each scene, and each line of the dock's list, took.
    double scene_bytes = 0;
    double line_bytes = 0;

private:
    void make_host_scenes();

    QTemporaryDir dir_;
    std::vector<OBSSceneAutoRelease> host_scenes_;
};

} // namespace corvane::bench
