// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "canvas/vertical_canvas.hpp"
#include "core/config_files.hpp"
#include "core/module_state.hpp"
#include "core/scene_list_store.hpp"
#include "mux/output_type.hpp"
#include "output/vertical_output.hpp"
#include "testbed/loaded_module.hpp"
#include "testbed/person.hpp"
#include "ui/vertical_dock.hpp"

#include <optional>

namespace corvane::test {

// A dock on the screen with a small canvas, its output and the file its scenes are saved in.
class DockRig : public testing::Test {
protected:
    DockRig() {
        register_mux_output_types();
        ObsSession::destroy_released_sources();
        open_runtime();
        dock.show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(&dock));
    }
    ~DockRig() override {
        close_runtime();
        StandInFrontend::get().scenes.clear();
    }

    // As the core does when the profile changes; what is not saved is lost.
    void open_runtime(const OutputConfig &config = {}) {
        const std::string path = dir_.filePath(QStringLiteral("list.ini")).toStdString();
        config_open(&module_state.global_config, path.c_str(), CONFIG_OPEN_ALWAYS);
        module_state.canvas = &canvas.emplace(CanvasConfig{.width = 72, .height = 128});
        EXPECT_TRUE(canvas->init());
        EXPECT_TRUE(output.emplace(&*canvas, config).init());
        restore_scene_list();
        dock.setRuntime(&*canvas, &*output);
        log.clear();
    }
    void close_runtime() {
        dock.setRuntime(nullptr, nullptr);
        output.reset();
        canvas.reset();
        module_state.canvas = nullptr;
        close_config_files();
    }
    // Without such a button the keys are used that activate the scene below.
    void click(const std::string &name) {
        if (auto *button = dock.findChild<QPushButton *>(QString::fromStdString(name))) {
            return QTest::mouseClick(button, Qt::LeftButton);
        }
        QTest::keyClick(&list, Qt::Key_Down);
        QTest::keyClick(&list, Qt::Key_Return);
    }

    LogCapture &log = LogCapture::get();
    std::optional<VerticalCanvas> canvas;
    std::optional<VerticalOutput> output;
    VerticalDock dock{nullptr, nullptr, nullptr};
    QListWidget &list = child<QListWidget>(dock);

private:
    QTemporaryDir dir_;
};

} // namespace corvane::test
