// SPDX-License-Identifier: GPL-2.0-or-later
// Answers requests, one JSON object a line, on the socket that the program which started the host
// left open for it. Runs on the UI thread. What acts on a widget is posted and answered at once, so
// that a dialog that the action opens does not hold up the answer.
#include <obs-frontend-api.h>
#include <obs-module.h>
#include <obs-websocket-api.h>

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QDockWidget>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QListWidget>
#include <QLocalSocket>
#include <QMainWindow>
#include <QMetaProperty>
#include <QPointer>
#include <QTest>

#include <algorithm>
#include <csignal>
#include <execinfo.h>
#include <fcntl.h>
#include <unistd.h>

OBS_DECLARE_MODULE()

namespace {

constexpr int kFloating = 0;
constexpr int kBelowAnother = -1;

// The visible widget that a request means: by "name", or in the open dialog by the text of a
// "button" or, with neither, as its text field. Null if there is none.
QWidget *find_requested(const QJsonObject &request) {
    const QWidget *dialog = QApplication::activeModalWidget();
    const auto is_requested = [&](const QWidget *widget) {
        if (!widget->isVisible()) {
            return false;
        }
        if (request["name"].isString()) {
            return widget->objectName() == request["name"].toString();
        }
        const auto *button = qobject_cast<const QAbstractButton *>(widget);
        const bool fits = request["button"].isString() ? button && button->text().remove(u'&') ==
                                                                       request["button"].toString()
                                                       : widget->inherits("QLineEdit");
        return fits && dialog && dialog->isAncestorOf(widget);
    };
    const QWidgetList widgets = QApplication::allWidgets();
    const auto found = std::ranges::find_if(widgets, is_requested);
    return found == widgets.end() ? nullptr : *found;
}

// The widget's properties, with "x" and "y" on the screen, and a list's "items".
QJsonObject describe(const QWidget *widget) {
    QJsonObject seen;
    const QMetaObject &type = *widget->metaObject();
    for (int index = 0; index < type.propertyCount(); ++index) {
        const QMetaProperty property = type.property(index);
        if (const QJsonValue value = QJsonValue::fromVariant(property.read(widget));
            value.isBool() || value.isDouble() || value.isString()) {
            seen[QLatin1StringView(property.name())] = value;
        }
    }
    const QPoint origin = widget->mapToGlobal(QPoint(0, 0));
    seen["x"] = origin.x();
    seen["y"] = origin.y();
    if (const auto *list = qobject_cast<const QListWidget *>(widget)) {
        QJsonArray items;
        for (int row = 0; row < list->count(); ++row) {
            const QListWidgetItem *item = list->item(row);
            items.append(QJsonObject{{"text", item->text()}, {"bold", item->font().bold()},
                {"current", item == list->currentItem()}});
        }
        seen["items"] = items;
    }
    return seen;
}

QJsonArray describe_windows() {
    QJsonArray windows;
    for (const QWidget *window : QApplication::topLevelWidgets()) {
        if (window->isVisible()) {
            windows.append(describe(window));
        }
    }
    return windows;
}

// A row is that of a list.
void click(QWidget *widget, int row) {
    QWidget *target = widget;
    QPoint point = widget->rect().center();
    if (auto *list = qobject_cast<QListWidget *>(widget); list && row >= 0) {
        list->scrollToItem(list->item(row));
        target = list->viewport();
        point = list->visualItemRect(list->item(row)).center();
    }
    QTest::mouseClick(target, Qt::LeftButton, Qt::NoModifier, point);
}

// Replaces the text of a field.
void type_text(QWidget *widget, const QString &text) {
    widget->setFocus();
    QTest::keyClick(widget, Qt::Key_A, Qt::ControlModifier);
    QTest::keyClick(widget, Qt::Key_Delete);
    // Characters beyond ASCII are entered by an input method.
    for (const char32_t character : text.toUcs4()) {
        if (character < 0x80) {
            QTest::keyClick(widget, static_cast<char>(character));
        } else {
            QInputMethodEvent event;
            event.setCommitString(QString::fromUcs4(&character, 1));
            QApplication::sendEvent(widget, &event);
        }
    }
}

// Docks the widget at a side of the window, puts another one's tab before it, or lets it float.
void place_dock(QMainWindow *window, QDockWidget *dock, int area) {
    if (area == kBelowAnother) {
        auto *other = window->findChild<QDockWidget *>("controlsDock");
        window->tabifyDockWidget(dock, other);
        other->raise();
    } else if (area != kFloating) {
        window->addDockWidget(static_cast<Qt::DockWidgetArea>(area), dock);
    }
    dock->setFloating(area == kFloating);
    if (dock->isFloating()) {
        dock->setGeometry(500, 150, 300, 640);
    }
}

// Triggers the action of that text in any menu of the main window.
void trigger_action(const QMainWindow *window, const QString &text) {
    for (QAction *action : window->findChildren<QAction *>()) {
        if (action->text().remove(u'&') == text) {
            action->trigger();
            return;
        }
    }
}

// Any request of obs-websocket, answered without its server.
QJsonObject call_websocket(const QJsonObject &request) {
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

// What is asked for and is not there has an empty answer.
QJsonObject answer(const QJsonObject &request) {
    const QString what = request["do"].toString();
    if (what == "request") {
        return call_websocket(request);
    }
    if (what == "windows") {
        return {{"windows", describe_windows()}};
    }
    auto *window = static_cast<QMainWindow *>(obs_frontend_get_main_window());
    const QPointer<QWidget> widget = what == "action" ? window : find_requested(request);
    if (!widget) {
        return {};
    }
    if (what == "look") {
        return describe(widget);
    }
    const auto action = [what, request, widget, window] {
        if (!widget) {
            return;
        }
        if (what == "click") {
            click(widget, request["row"].toInt(-1));
        } else if (what == "type") {
            type_text(widget, request["text"].toString());
        } else if (what == "place") {
            place_dock(window, qobject_cast<QDockWidget *>(widget), request["area"].toInt());
        } else if (what == "action") {
            trigger_action(window, request["text"].toString());
        }
    };
    QMetaObject::invokeMethod(QCoreApplication::instance(), action, Qt::QueuedConnection);
    return {{"found", true}};
}

QPointer<QLocalSocket> channel;

void open_channel() {
    const int descriptor = qEnvironmentVariableIntValue("LIVEHOST_SOCKET");
    // The host's children must not keep it open.
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    channel = new QLocalSocket(QCoreApplication::instance());
    channel->setSocketDescriptor(descriptor);
    channel->write("{}\n");
    QObject::connect(channel, &QLocalSocket::readyRead, channel, [] {
        while (channel && channel->canReadLine()) {
            const QJsonObject asked = QJsonDocument::fromJson(channel->readLine()).object();
            const QByteArray answered = QJsonDocument(answer(asked)).toJson(QJsonDocument::Compact);
            if (channel) {
                channel->write(answered + '\n');
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

// Writes the call stack. The signal's default action is back in force and ends the process.
void on_crash(int signal) {
    void *frames[64];
    backtrace_symbols_fd(frames, backtrace(frames, std::size(frames)), STDERR_FILENO);
    raise(signal);
}

void report_crashes() {
    // The first call loads a library, which a signal handler must not do.
    void *frame;
    backtrace(&frame, 1);
    struct sigaction action{};
    action.sa_handler = on_crash;
    action.sa_flags = SA_RESETHAND;
    for (const int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT}) {
        sigaction(signal, &action, nullptr);
    }
}

} // namespace

bool obs_module_load() {
    report_crashes();
    obs_frontend_add_event_callback(on_frontend_event, nullptr);
    return true;
}

void obs_module_unload() {
    obs_frontend_remove_event_callback(on_frontend_event, nullptr);
    delete channel;
}
