// SPDX-License-Identifier: GPL-2.0-or-later
#include "ui/vertical_preview_widget.hpp"

#include "base/log.hpp"
#include "ui/native_window.hpp"
#include "ui/preview_drawing.hpp"

#include <util/base.h>

#include <QPlatformSurfaceEvent>
#include <QResizeEvent>
#include <QWindow>

#include <algorithm>

namespace corvane {

namespace {

constexpr QSize kMinimumSize(135, 240);
constexpr uint32_t kBackground = 0x080808;

// The widget's length in the screen's own pixels; libobs takes no display without an area.
uint32_t in_pixels(const QWidget &widget, int length) {
    return static_cast<uint32_t>(std::max(qRound(length * widget.devicePixelRatioF()), 1));
}

bool surface_goes(QEvent *event) {
    return event->type() == QEvent::PlatformSurface &&
           static_cast<QPlatformSurfaceEvent *>(event)->surfaceEventType() ==
               QPlatformSurfaceEvent::SurfaceAboutToBeDestroyed;
}

} // namespace

VerticalPreviewWidget::VerticalPreviewWidget(VerticalCanvas *canvas, QWidget *parent)
    : QWidget(parent)
    , canvas(canvas) {
    // Without this every widget above would get a window of its own too, up to the host's.
    setAttribute(Qt::WA_DontCreateNativeAncestors);
    setAttribute(Qt::WA_NativeWindow);
    setAttribute(Qt::WA_PaintOnScreen);
    setAttribute(Qt::WA_NoSystemBackground);
    setMinimumSize(kMinimumSize);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

VerticalPreviewWidget::~VerticalPreviewWidget() {
    destroy_display();
}

void VerticalPreviewWidget::set_canvas(VerticalCanvas *new_canvas) {
    canvas = new_canvas;
    // Frames are drawn inside the graphics context: once we have been in there, the frame that
    // may have seen the old canvas is done.
    obs_enter_graphics();
    obs_leave_graphics();
}

QSize VerticalPreviewWidget::minimumSizeHint() const {
    return kMinimumSize;
}

void VerticalPreviewWidget::showEvent(QShowEvent *event) {
    QWidget::showEvent(event);
    winId();
    if (QWindow *window = windowHandle()) {
        window->installEventFilter(this);
        // The toolkit gives the window its size only after this event; libobs takes it from there.
        window->resize(size());
    }
    if (!display) {
        create_display();
    }
}

void VerticalPreviewWidget::hideEvent(QHideEvent *event) {
    QWidget::hideEvent(event);
    destroy_display();
}

// Holds the widget at no more than 9:16 of its height; the stretches beside it keep it centred.
// Exactly at the limit the maximum stays: lifted, it would let the layout widen the widget again,
// and the two would never come to rest.
void VerticalPreviewWidget::resizeEvent(QResizeEvent *event) {
    QWidget::resizeEvent(event);
    const int limit = height() * 9 / 16;
    if (width() != limit) {
        setMaximumWidth(width() > limit ? limit : QWIDGETSIZE_MAX);
    }
    resize_display();
}

bool VerticalPreviewWidget::eventFilter(QObject *watched, QEvent *event) {
    if (surface_goes(event)) {
        destroy_display();
    } else if (event->type() == QEvent::Expose && isVisible()) {
        // Comes with every change of the screen's pixel ratio, too.
        if (display) {
            resize_display();
        } else {
            create_display();
        }
    }
    return QWidget::eventFilter(watched, event);
}

void VerticalPreviewWidget::create_display() {
    gs_init_data init = {};
    if (!native_window_of(*this, init.window)) {
        log_widget(LOG_WARNING, "VerticalPreviewWidget: HWND not ready, skipping display create");
        return;
    }
    init.cx = in_pixels(*this, width());
    init.cy = in_pixels(*this, height());
    init.format = GS_RGBA;
    init.zsformat = GS_ZS_NONE;
    display = obs_display_create(&init, kBackground);
    if (!display) {
        log_widget(LOG_ERROR, "VerticalPreviewWidget: obs_display_create failed");
        return;
    }
    obs_display_add_draw_callback(display, draw, this);
    log_widget(LOG_INFO, "VerticalPreviewWidget: display created (%ux%u)", init.cx, init.cy);
}

void VerticalPreviewWidget::destroy_display() {
    if (!display) {
        return;
    }
    obs_display_remove_draw_callback(display, draw, this);
    obs_display_destroy(display);
    display = nullptr;
    log_widget(LOG_INFO, "VerticalPreviewWidget: display destroyed");
}

void VerticalPreviewWidget::resize_display() {
    if (display) {
        obs_display_resize(display, in_pixels(*this, width()), in_pixels(*this, height()));
    }
}

void VerticalPreviewWidget::draw(void *widget, uint32_t cx, uint32_t cy) {
    if (const VerticalCanvas *canvas = static_cast<VerticalPreviewWidget *>(widget)->canvas) {
        draw_preview(*canvas, cx, cy);
    }
}

} // namespace corvane
