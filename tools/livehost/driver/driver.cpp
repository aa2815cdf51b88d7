// SPDX-License-Identifier: GPL-2.0-or-later
// Answers vendor requests of the host's remote control. What only looks is answered from the UI
// thread; what acts is posted to it and answered at once, so that a dialog that the action opens
// does not hold up the answer.
#include "crash_report.hpp"
#include "widgets.hpp"

#include <obs-module.h>
#include <obs-websocket-api.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QPointer>
#include <QTimer>
#include <QWidget>

#include <algorithm>
#include <functional>

OBS_DECLARE_MODULE()

namespace livehost {

namespace {

using Handler = QJsonObject (*)(const QJsonObject &);

QJsonObject to_json(obs_data_t *data) {
    return QJsonDocument::fromJson(obs_data_get_json(data)).object();
}

void fill(obs_data_t *response, const QJsonObject &answer) {
    const QByteArray text = QJsonDocument(answer).toJson(QJsonDocument::Compact);
    obs_data_t *data = obs_data_create_from_json(text.constData());
    obs_data_apply(response, data);
    obs_data_release(data);
}

// The widget that a request means: by "name", by the text of a "button" of the open dialog, or,
// with neither, the text field of that dialog.
QWidget *meant(const QJsonObject &request) {
    if (request.contains("name")) {
        return find_widget(request["name"].toString());
    }
    return request.contains("button") ? find_dialog_button(request["button"].toString())
                                      : find_dialog_field();
}

QJsonObject post(const QJsonObject &request, const std::function<void(QWidget *)> &action) {
    const QPointer<QWidget> widget = meant(request);
    if (!widget) {
        return {{"found", false}};
    }
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [widget, action] {
            if (widget) {
                action(widget);
            }
        },
        Qt::QueuedConnection);
    return {{"found", true}};
}

QJsonObject on_look(const QJsonObject &request) {
    QWidget *widget = meant(request);
    return widget ? QJsonObject{{"found", true}, {"widget", describe(widget)}}
                  : QJsonObject{{"found", false}};
}

QJsonObject on_windows(const QJsonObject &) {
    const QWidget *focus = QApplication::focusWidget();
    return {{"windows", describe_windows()}, {"focus", focus ? focus->objectName() : QString()}};
}

QJsonObject on_click(const QJsonObject &request) {
    const int row = request["row"].toInt(-1);
    const bool twice = request["twice"].toBool();
    return post(request, [row, twice](QWidget *widget) { click(widget, row, twice); });
}

QJsonObject on_type(const QJsonObject &request) {
    const QString text = request["text"].toString();
    const bool replace = request["replace"].toBool();
    return post(request, [text, replace](QWidget *widget) { type_text(widget, text, replace); });
}

QJsonObject on_key(const QJsonObject &request) {
    const int key = request["key"].toInt();
    return post(request, [key](QWidget *widget) { press_key(widget, key); });
}

QJsonObject on_place(const QJsonObject &request) {
    const int area = request["area"].toInt();
    return post(request, [area](QWidget *widget) { place_dock(widget, area); });
}

QJsonObject on_action(const QJsonObject &request) {
    const QString text = request["text"].toString();
    QMetaObject::invokeMethod(
        QCoreApplication::instance(), [text] { trigger_action(text); }, Qt::QueuedConnection);
    return {};
}

// The longest time that the event loop did not turn, in ms, since the last call.
QJsonObject on_longest_pause(const QJsonObject &) {
    static qint64 longest = 0;
    static QElapsedTimer since;
    static QTimer *timer = nullptr;
    if (!timer) {
        timer = new QTimer(QCoreApplication::instance());
        QObject::connect(
            timer, &QTimer::timeout, [] { longest = std::max(longest, since.restart()); });
        since.start();
        timer->start(1);
    }
    longest = std::max(longest, since.restart());
    return {{"ms", std::exchange(longest, 0)}};
}

struct Request {
    const char *name;
    Handler handler;
};

constexpr Request kRequests[] = {
    {.name = "look", .handler = on_look},
    {.name = "windows", .handler = on_windows},
    {.name = "click", .handler = on_click},
    {.name = "type", .handler = on_type},
    {.name = "key", .handler = on_key},
    {.name = "place", .handler = on_place},
    {.name = "action", .handler = on_action},
    {.name = "longest_pause", .handler = on_longest_pause},
};

void answer(obs_data_t *request, obs_data_t *response, void *handler_record) {
    const Handler handler = static_cast<const Request *>(handler_record)->handler;
    const QJsonObject asked = to_json(request);
    QJsonObject answered;
    QMetaObject::invokeMethod(
        QCoreApplication::instance(), [&] { answered = handler(asked); },
        Qt::BlockingQueuedConnection);
    fill(response, answered);
}

} // namespace

} // namespace livehost

bool obs_module_load() {
    livehost::report_crashes();
    return true;
}

void obs_module_post_load() {
    obs_websocket_vendor vendor = obs_websocket_register_vendor("livehost");
    for (const livehost::Request &request : livehost::kRequests) {
        obs_websocket_vendor_register_request(
            vendor, request.name, livehost::answer, const_cast<livehost::Request *>(&request));
    }
}
