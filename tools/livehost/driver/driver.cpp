// SPDX-License-Identifier: GPL-2.0-or-later
// Answers requests, one JSON object a line, on the socket that the program which started the host
// left open for it. All of it runs on the UI thread. What acts on a widget is posted and answered
// at once, so that a dialog that the action opens does not hold up the answer.
#include "crash_report.hpp"
#include "widgets.hpp"

#include <obs-frontend-api.h>
#include <obs-module.h>
#include <obs-websocket-api.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QLocalSocket>
#include <QPointer>
#include <QTimer>
#include <QWidget>

#include <fcntl.h>

#include <algorithm>
#include <functional>
#include <string_view>

OBS_DECLARE_MODULE()

namespace livehost {

namespace {

using Handler = QJsonObject (*)(const QJsonObject &);

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

// Any request of obs-websocket, which answers it here without its server.
QJsonObject on_request(const QJsonObject &request) {
    const QByteArray text = QJsonDocument(request["data"].toObject()).toJson();
    obs_data_t *data = obs_data_create_from_json(text.constData());
    obs_websocket_request_response *response =
        obs_websocket_call_request(request["type"].toString().toUtf8().constData(), data);
    obs_data_release(data);
    if (!response) {
        return {{"code", 0}, {"comment", "obs-websocket is not loaded"}};
    }
    const QJsonObject answer{{"code", static_cast<int>(response->status_code)},
        {"comment", response->comment},
        {"data", QJsonDocument::fromJson(response->response_data).object()}};
    obs_websocket_request_response_free(response);
    return answer;
}

struct Request {
    std::string_view name;
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
    {.name = "request", .handler = on_request},
};

QByteArray answer(const QByteArray &line) {
    const QJsonObject asked = QJsonDocument::fromJson(line).object();
    const std::string name = asked["do"].toString().toStdString();
    const auto *const request = std::ranges::find(kRequests, name, &Request::name);
    const QJsonObject answered = request == std::end(kRequests)
                                     ? QJsonObject{{"error", "no such request"}}
                                     : request->handler(asked);
    return QJsonDocument(answered).toJson(QJsonDocument::Compact) + '\n';
}

QPointer<QLocalSocket> channel;

void open_channel() {
    bool given = false;
    const int descriptor = qEnvironmentVariableIntValue("LIVEHOST_SOCKET", &given);
    if (!given) {
        return;
    }
    // The host's children must not keep it open.
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    channel = new QLocalSocket(QCoreApplication::instance());
    channel->setSocketDescriptor(descriptor);
    channel->write("{}\n");
    QObject::connect(channel, &QLocalSocket::readyRead, channel, [] {
        while (channel && channel->canReadLine()) {
            const QByteArray answered = answer(channel->readLine());
            if (channel) {
                channel->write(answered);
                channel->flush();
            }
        }
    });
}

// Requests are answered from the end of the host's start to the beginning of its end.
void on_frontend_event(obs_frontend_event event, void *) {
    if (event == OBS_FRONTEND_EVENT_FINISHED_LOADING) {
        open_channel();
    } else if (event == OBS_FRONTEND_EVENT_EXIT && channel) {
        channel->deleteLater();
    }
}

} // namespace

} // namespace livehost

bool obs_module_load() {
    livehost::report_crashes();
    obs_frontend_add_event_callback(livehost::on_frontend_event, nullptr);
    return true;
}

void obs_module_unload() {
    obs_frontend_remove_event_callback(livehost::on_frontend_event, nullptr);
    delete livehost::channel;
}
