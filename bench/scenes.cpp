// SPDX-License-Identifier: GPL-2.0-or-later
// How the operations on the list of vertical scenes, its file and the dock grow with its length.
#include "canvas/vertical_canvas.hpp"
#include "core/config_files.hpp"
#include "core/module_state.hpp"
#include "core/scene_list_store.hpp"
#include "support/obs_session.hpp"
#include "support/wait.hpp"
#include "ui/vertical_dock.hpp"

#include <QApplication>
#include <QTemporaryDir>
#include <QWindow>

#include <benchmark/benchmark.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace corvane;

// As many host scenes as vertical ones, each of these showing one of those; the file that the list
// is saved in; a dock on the screen.
class Rig {
public:
    explicit Rig(int64_t count)
        : count(count) {
        canvas.init();
        canvas.remove_scene("Scene 1");
        for (int64_t index = 0; index < count; ++index) {
            host_scenes_.emplace_back(obs_scene_create(host_scene(index).c_str()));
            canvas.create_scene(scene(index));
            canvas.assign_scene_source(scene(index), host_scene(index));
        }
        module_state.canvas = &canvas;
        module_state.global_config_path = dir_.filePath("list.ini").toStdString();
        config_open(&module_state.global_config, module_state.global_config_path.c_str(),
            CONFIG_OPEN_ALWAYS);
        module_state.scene_list_restored = true; // else a save keeps what is in the file
        save_scene_list();
        dock.setPreviewShown(false); // draws the same whatever the number of scenes
        dock.show();
        test::wait_until([this] { return dock.windowHandle()->isExposed(); });
    }
    ~Rig() {
        dock.setRuntime(nullptr, nullptr);
        canvas.shutdown();
        module_state.canvas = nullptr;
        close_config_files();
        host_scenes_.clear();
        test::ObsSession::destroy_released_sources();
    }

    static std::string scene(int64_t index) { return "Vertical scene " + std::to_string(index); }
    static std::string host_scene(int64_t index) { return "Host scene " + std::to_string(index); }
    // The one that a search finds last.
    std::string last() const { return scene(count - 1); }
    void assign_last() { canvas.assign_scene_source(last(), host_scene(count - 1)); }

    void clear() {
        canvas.shutdown();
        canvas.init();
        test::ObsSession::destroy_released_sources();
    }

    const int64_t count;
    VerticalCanvas canvas{{.width = 72, .height = 128}};
    VerticalDock dock{&canvas, nullptr, nullptr};

private:
    QTemporaryDir dir_;
    std::vector<OBSSceneAutoRelease> host_scenes_;
};

std::unique_ptr<Rig> rig;

void nothing() {}

// Only `run` is timed; the others bring the list back to what it was.
struct Operation {
    const char *name;
    std::function<void()> run;
    std::function<void()> before = nothing;
    std::function<void()> after = nothing;
};

void measure(benchmark::State &state, const Operation &operation) {
    if (!rig || rig->count != state.range()) {
        rig.reset();
        rig = std::make_unique<Rig>(state.range());
    }
    for ([[maybe_unused]] auto _ : state) {
        operation.before();
        const auto begin = std::chrono::steady_clock::now();
        operation.run();
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
        state.SetIterationTime(time.count());
        operation.after();
    }
    if (rig->canvas.scene_names().size() != static_cast<size_t>(rig->count)) {
        state.SkipWithError("scenes are missing");
    }
    state.SetComplexityN(state.range());
}

const std::vector<Operation> operations = {
    {.name = "create",
        .run = [] { rig->canvas.create_scene("One more"); },
        .after = [] { rig->canvas.remove_scene("One more"); }},
    {.name = "rename",
        .run = [] { rig->canvas.rename_scene(rig->last(), "Renamed"); },
        .after = [] { rig->canvas.rename_scene("Renamed", rig->last()); }},
    {.name = "remove",
        .run = [] { rig->canvas.remove_scene(rig->last()); },
        .after =
            [] {
                rig->canvas.create_scene(rig->last());
                rig->assign_last();
            }},
    {.name = "assign", .run = [] { rig->assign_last(); }},
    {.name = "activate",
        .run = [] { rig->canvas.set_active_scene(rig->last()); },
        .after = [] { rig->canvas.set_active_scene(Rig::scene(0)); }},
    {.name = "save_scene_list", .run = save_scene_list},
    {.name = "reapply_scene_sources", .run = reapply_scene_sources},
    {.name = "dock_refresh",
        .run =
            [] {
                rig->dock.refreshSceneList();
                QCoreApplication::processEvents();
            }},
    {.name = "restore_scene_list", .run = restore_scene_list, .before = [] { rig->clear(); }},
};

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    const QApplication application(argc, argv);
    const QTemporaryDir dir;
    const test::ObsSession session(dir.path().toStdString());
    for (const Operation &operation : operations) {
        const auto run = [&operation](benchmark::State &state) {
            measure(state, operation);
        };
        benchmark::RegisterBenchmark(operation.name, run)
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond)
            ->ArgsProduct({{10, 100, 300, 1000}})
            ->Complexity();
    }
    benchmark::RunSpecifiedBenchmarks();
    rig.reset();
    return 0;
}
