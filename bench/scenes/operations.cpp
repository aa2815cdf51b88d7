// SPDX-License-Identifier: GPL-2.0-or-later
#include "operations.hpp"

#include "core/scene_list_store.hpp"

#include <benchmark/benchmark.h>

#include <QCoreApplication>

#include <chrono>
#include <functional>
#include <string>

namespace corvane::bench {

namespace {

// What is timed is `run` alone.
struct Operation {
    const char *name;
    std::function<void()> run;
    std::function<void()> before = [] {
    };
    std::function<void()> after = [] {
    };
    int iterations = 0; // 0 for as many as the seconds have room for
};

void add(const Operation &operation, double seconds) {
    const auto measure = [operation](benchmark::State &state) {
        for (auto _ : state) {
            operation.before();
            const auto begin = std::chrono::steady_clock::now();
            operation.run();
            const auto end = std::chrono::steady_clock::now();
            state.SetIterationTime(std::chrono::duration<double>(end - begin).count());
            operation.after();
        }
    };
    auto *benchmark = benchmark::RegisterBenchmark(operation.name, measure)
                          ->UseManualTime()
                          ->Unit(benchmark::kMicrosecond);
    if (operation.iterations > 0) {
        benchmark->Iterations(operation.iterations);
    } else {
        benchmark->MinTime(seconds);
    }
}

// All of the last scene, the one that a search finds last. Each leaves the list as it was.
void add_edits(SceneRig &rig, double seconds) {
    VerticalCanvas &canvas = rig.canvas;
    const auto assign_last = [&] {
        canvas.assign_scene_source(rig.last(), SceneRig::source(rig.count - 1));
    };
    add({.name = "create",
            .run = [&] { canvas.create_scene("One more"); },
            .after = [&] { canvas.remove_scene("One more"); }},
        seconds);
    add({.name = "rename",
            .run = [&] { canvas.rename_scene(rig.last(), "Renamed"); },
            .after = [&] { canvas.rename_scene("Renamed", rig.last()); }},
        seconds);
    add({.name = "remove",
            .run = [&] { canvas.remove_scene(rig.last()); },
            .after =
                [&canvas, &rig, assign_last] {
                    canvas.create_scene(rig.last());
                    assign_last();
                }},
        seconds);
    add({.name = "assign", .run = assign_last}, seconds);
    add({.name = "activate",
            .run = [&] { canvas.set_active_scene(rig.last()); },
            .after = [&] { canvas.set_active_scene(SceneRig::scene(0)); }},
        seconds);
}

void add_whole_list(SceneRig &rig, double seconds) {
    add({.name = "list",
            .run =
                [&canvas = rig.canvas] {
                    for (const std::string &name : canvas.scene_names()) {
                        benchmark::DoNotOptimize(canvas.scene_source_name(name));
                    }
                }},
        seconds);
    add({.name = "save_scene_list", .run = save_scene_list}, seconds);
    add({.name = "reapply_scene_sources", .run = reapply_scene_sources}, seconds);
    add({.name = "dock refresh", .run = [&] { rig.dock->refreshSceneList(); }}, seconds);
    add({.name = "dock refresh, painted",
            .run =
                [&] {
                    rig.dock->refreshSceneList();
                    QCoreApplication::processEvents();
                }},
        seconds);
    add({.name = "restore_scene_list",
            .run = restore_scene_list,
            .before = [&] { rig.empty(); },
            .iterations = 3},
        seconds);
}

} // namespace

void register_operations(SceneRig &rig, double seconds) {
    add_edits(rig, seconds);
    add_whole_list(rig, seconds);
}

} // namespace corvane::bench
