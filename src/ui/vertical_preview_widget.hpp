// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "base/obs_handles.hpp"

#include <QWidget>

#include <atomic>

namespace corvane {

class VerticalCanvas;

// Shows the vertical canvas live: libobs draws into the widget's native window. The display
// exists only while the widget is shown. UI thread, except draw().
class VerticalPreviewWidget : public QWidget {
    Q_OBJECT

public:
    // The canvas is not owned and may be null.
    VerticalPreviewWidget(VerticalCanvas *canvas, QWidget *parent);
    ~VerticalPreviewWidget() override;

    VerticalCanvas *shown_canvas() const { return canvas; }

    // When it returns, no frame that shows the old canvas is being drawn any more.
    void set_canvas(VerticalCanvas *canvas);

    QSize minimumSizeHint() const override;
    QPaintEngine *paintEngine() const override { return nullptr; }

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

    // Watches the native window, which can come later than the widget and go before it.
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void create_display();
    void destroy_display();
    void resize_display();
    // Graphics thread.
    static void draw(void *widget, uint32_t cx, uint32_t cy);

    std::atomic<VerticalCanvas *> canvas; // read by the graphics thread
    obs_display_t *display = nullptr;
};

} // namespace corvane
