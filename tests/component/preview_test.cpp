// SPDX-License-Identifier: GPL-2.0-or-later
#include "testbed/dock_rig.hpp"
#include "ui/preview_drawing.hpp"
#include "ui/vertical_preview_widget.hpp"

#include <QDockWidget>
#include <QMainWindow>

namespace corvane::test {

namespace {

// A wrong viewport shows the stream distorted or off its place.
TEST(Preview, IsLetterboxed) {
    using Case = std::tuple<int, int, int, int, std::array<int, 4>>;
    for (const auto &[cx, cy, width, height, viewport] :
        {Case{500, 500, 1080, 1920, {109, 0, 281, 499}}, {135, 400, 1080, 1920, {0, 80, 135, 240}},
            {300, 100, 1920, 1080, {61, 0, 177, 100}}}) {
        const PreviewViewport v = preview_viewport(cx, cy, width, height);
        EXPECT_EQ((std::array{v.x, v.y, v.width, v.height}), viewport);
    }
}

// A hidden preview must cost the host nothing; however it is moved nothing may pile up; and a
// canvas that goes with its profile must not be drawn any more.
TEST_F(DockRig, DrawsOnlyWhatIsThere) {
    QMainWindow window;
    QDockWidget host(&window);
    window.addDockWidget(Qt::RightDockWidgetArea, &host);
    dock.hide();
    host.setWidget(&dock);
    for (int round = 0; round < 20; ++round) {
        log.clear();
        host.setFloating(round % 2 == 0);
        window.show();
        host.show();
        const uint32_t frames = obs_get_total_frames();
        EXPECT_TRUE(wait_until([&] { return obs_get_total_frames() > frames + 1; }));
        const size_t displays = log.matching("display created (").size();
        EXPECT_EQ(displays, log.matching("display destroyed").size() + 1);
        (round % 4 == 1 ? static_cast<QWidget &>(window) : host).hide();
        EXPECT_EQ(displays, log.matching("display destroyed").size());
        close_runtime();
        open_runtime();
    }
    dock.setParent(nullptr);
    std::atomic<bool> drawing = false, asked = false;
    std::thread frame([&] {
        obs_enter_graphics();
        drawing = true;
        for (int left = 2000; left > 0; left -= asked) {
            std::this_thread::yield();
        }
        drawing = false;
        obs_leave_graphics();
    });
    EXPECT_TRUE(wait_until([&] { return drawing.load(); }));
    asked = true;
    dock.setRuntime(nullptr, nullptr);
    EXPECT_FALSE(drawing) << "a frame may still show the old canvas";
    frame.join();
}

// The preview must keep to 9:16, in the middle, and its limit and the layout must not fight on.
TEST_F(DockRig, PreviewComesToRest) {
    auto &preview = child<VerticalPreviewWidget>(dock);
    for (const QSize size : {QSize(540, 420), {540, 900}, {270, 900}, {400, 430}, {540, 420}}) {
        dock.resize(size);
        int moves = 0;
        for (int turn = 0; turn < 200; ++turn) {
            const QRect before = preview.geometry();
            QCoreApplication::processEvents();
            moves += before != preview.geometry();
        }
        EXPECT_LT(moves, 10) << size.width() << 'x' << size.height();
        const int room = preview.parentWidget()->width();
        EXPECT_EQ(preview.width(), std::min(preview.height() * 9 / 16, room));
        EXPECT_LE(std::abs(room - 2 * preview.geometry().center().x()), 2);
    }
}

} // namespace

} // namespace corvane::test
