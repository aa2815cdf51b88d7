// SPDX-License-Identifier: GPL-2.0-or-later
#include "ui/vertical_preview_widget.hpp"

#include "base/log.hpp"
#include "canvas/vertical_canvas.hpp"
#include "ui/native_window.hpp"
#include "ui/tool_tip.hpp"

#include <util/base.h>

#include <QPlatformSurfaceEvent>
#include <QResizeEvent>
#include <QWindow>

namespace corvane {

namespace {

constexpr QSize kMinimumSize(135, 240);
constexpr uint32_t kBackground = 0x080808;

// A length of the widget in device pixels; at least 1, as libobs refuses an empty display.
uint32_t in_pixels(const QWidget &widget, int length) {
    return static_cast<uint32_t>(std::max(qRound(length * widget.devicePixelRatioF()), 1));
}

bool surface_about_to_be_destroyed(QEvent *event) {
    return event->type() == QEvent::PlatformSurface &&
           static_cast<QPlatformSurfaceEvent *>(event)->surfaceEventType() ==
               QPlatformSurfaceEvent::SurfaceAboutToBeDestroyed;
}

// Draws the active vertical scene's source as the canvas shows it; nothing without one or if it has
// no size.
void draw_preview(const VerticalCanvas &canvas, uint32_t cx, uint32_t cy) {
    const uint32_t width = canvas.width();
    const uint32_t height = canvas.height();
    obs_source_t *source = canvas.active_source();
    if (width == 0 || height == 0 || !source) {
        return;
    }
    const uint32_t source_width = obs_source_get_width(source);
    const uint32_t source_height = obs_source_get_height(source);
    if (source_width == 0 || source_height == 0) {
        return;
    }
    const PreviewViewport viewport = preview_viewport(cx, cy, width, height);
    const CoverPlacement placement = cover_placement(width, height, source_width, source_height);

    gs_viewport_push();
    gs_projection_push();
    gs_set_viewport(viewport.x, viewport.y, viewport.width, viewport.height);
    gs_ortho(0.0F, static_cast<float>(width), 0.0F, static_cast<float>(height), -100.0F, 100.0F);

    gs_matrix_push();
    gs_matrix_translate3f(placement.x, placement.y, 0.0F);
    gs_matrix_scale3f(placement.scale, placement.scale, 1.0F);
    obs_source_video_render(source);
    gs_matrix_pop();

    gs_projection_pop();
    gs_viewport_pop();
}

} // namespace

VerticalPreviewWidget::VerticalPreviewWidget(VerticalCanvas *canvas, QWidget *parent)
    : QWidget(parent)
    , canvas(canvas) {
    // Without this all its ancestors would become native windows, too.
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
    // libobs draws each frame inside the graphics context: once this thread has entered it, no
    // frame uses the old canvas any more.
    obs_enter_graphics();
    obs_leave_graphics();
}

QSize VerticalPreviewWidget::minimumSizeHint() const {
    return kMinimumSize;
}

bool VerticalPreviewWidget::event(QEvent *event) {
    return show_tool_tip(*event, toolTip()) || QWidget::event(event);
}

void VerticalPreviewWidget::showEvent(QShowEvent *event) {
    QWidget::showEvent(event);
    winId();
    if (QWindow *window = windowHandle()) {
        window->installEventFilter(this);
        // Qt resizes the window only after this event; libobs reads the size from the window.
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

// Limits the width to 9:16 of the height. Exactly at the limit the maximum stays: without it the
// layout would widen the widget again, endlessly.
void VerticalPreviewWidget::resizeEvent(QResizeEvent *event) {
    QWidget::resizeEvent(event);
    const int limit = height() * 9 / 16;
    if (width() != limit) {
        setMaximumWidth(width() > limit ? limit : QWIDGETSIZE_MAX);
    }
    resize_display();
}

bool VerticalPreviewWidget::eventFilter(QObject *watched, QEvent *event) {
    const bool own = watched == windowHandle();
    if (own && surface_about_to_be_destroyed(event)) {
        destroy_display();
    } else if (own && event->type() == QEvent::Expose && isVisible()) {
        // Also sent when the device pixel ratio changes.
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
