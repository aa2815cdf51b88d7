// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "base/obs_handles.hpp"

#include <QWidget>

#include <algorithm>
#include <atomic>
#include <cstdint>

namespace corvane {

class VerticalCanvas;

// The canvas's place in a display, in the display's pixels: as large as fits, centred.
struct PreviewViewport {
    int x;
    int y;
    int width;
    int height;
};

// Single precision, so truncation may lose a row or column, see docs/DECISIONS.md.
constexpr PreviewViewport preview_viewport(
    uint32_t cx, uint32_t cy, uint32_t canvas_width, uint32_t canvas_height) {
    const auto width = static_cast<float>(canvas_width);
    const auto height = static_cast<float>(canvas_height);
    const float scale = std::min(static_cast<float>(cx) / width, static_cast<float>(cy) / height);
    const auto shown_width = static_cast<uint32_t>(scale * width);
    const auto shown_height = static_cast<uint32_t>(scale * height);
    return {
        .x = static_cast<int>((cx - shown_width) >> 1),
        .y = static_cast<int>((cy - shown_height) >> 1),
        .width = static_cast<int>(shown_width),
        .height = static_cast<int>(shown_height),
    };
}

// Live preview of the vertical canvas: libobs draws into the widget's native window. The display
// exists only while the widget is shown. UI thread, except draw().
class VerticalPreviewWidget : public QWidget {
    Q_OBJECT

public:
    // The canvas is not owned and may be null.
    VerticalPreviewWidget(VerticalCanvas *canvas, QWidget *parent);
    ~VerticalPreviewWidget() override;

    VerticalCanvas *shown_canvas() const { return canvas; }

    // After it returns, the old canvas is no longer used for drawing.
    void set_canvas(VerticalCanvas *canvas);

    QSize minimumSizeHint() const override;
    QPaintEngine *paintEngine() const override { return nullptr; }

protected:
    bool event(QEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

    // Watches the native window, which can be created after the widget and destroyed before it.
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void create_display();
    void destroy_display();
    void resize_display();
    // Graphics thread; the display's size in pixels.
    static void draw(void *widget, uint32_t cx, uint32_t cy);

    std::atomic<VerticalCanvas *> canvas; // read by the graphics thread
    obs_display_t *display = nullptr;
};

} // namespace corvane
