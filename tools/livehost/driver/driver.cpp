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
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QListWidget>
#include <QLocalSocket>
#include <QMainWindow>
#include <QMessageBox>
#include <QMetaProperty>
#include <QPointer>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <csignal>
#include <execinfo.h>
#include <fcntl.h>
#include <unistd.h>

OBS_DECLARE_MODULE()

namespace livehost {

namespace {

constexpr int kFloating = 0;
constexpr int kBelowAnother = -1;

QJsonArray list_items(const QListWidget &list) {
    QJsonArray items;
    for (int row = 0; row < list.count(); ++row) {
        const QListWidgetItem *item = list.item(row);
        items.append(QJsonObject{{"text", item->text()}, {"bold", item->font().bold()},
            {"current", item == list.currentItem()}});
    }
    return items;
}

// The visible widget that a request means: by "name", by the text of a "button" of the open dialog,
// or, with neither, the text field of that dialog. Null if there is none.
QWidget *find_requested(const QJsonObject &request) {
    const QWidget *dialog = QApplication::activeModalWidget();
    const auto is_requested = [&](const QWidget *widget) {
        if (!widget->isVisible()) {
            return false;
        }
        if (request.contains("name")) {
            return widget->objectName() == request["name"].toString();
        }
        const auto *button = qobject_cast<const QAbstractButton *>(widget);
        return dialog && dialog->isAncestorOf(widget) &&
               (request.contains("button")
                       ? button && button->text().remove(u'&') == request["button"].toString()
                       : qobject_cast<const QLineEdit *>(widget) != nullptr);
    };
    const QWidgetList widgets = QApplication::allWidgets();
    const auto found = std::ranges::find_if(widgets, is_requested);
    return found == widgets.end() ? nullptr : *found;
}

// The widget's properties, with "x" and "y" on the screen, "text" as displayed, a list's "items"
// and a dock's "area".
QJsonObject describe(QWidget *widget) {
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
    if (const auto *edit = qobject_cast<QLineEdit *>(widget)) {
        seen["text"] = edit->displayText();
    } else if (const auto *list = qobject_cast<QListWidget *>(widget)) {
        seen["items"] = list_items(*list);
    } else if (auto *dock = qobject_cast<QDockWidget *>(widget)) {
        if (auto *window = qobject_cast<QMainWindow *>(dock->parentWidget())) {
            seen["area"] = window->dockWidgetArea(dock);
        }
    }
    return seen;
}

// Title and, of message boxes, text of every visible window.
QJsonArray describe_windows() {
    QJsonArray windows;
    for (const QWidget *window : QApplication::topLevelWidgets()) {
        if (window->isVisible()) {
            QJsonObject seen{{"title", window->windowTitle()}};
            if (const auto *box = qobject_cast<const QMessageBox *>(window)) {
                seen["text"] = box->text();
            }
            windows.append(seen);
        }
    }
    return windows;
}

// A row is that of a list.
void click(QWidget *widget, int row, bool twice) {
    QWidget *target = widget;
    QPoint point = widget->rect().center();
    if (auto *list = qobject_cast<QListWidget *>(widget); list && row >= 0) {
        list->scrollToItem(list->item(row));
        target = list->viewport();
        point = list->visualItemRect(list->item(row)).center();
    }
    QTest::mouseClick(target, Qt::LeftButton, Qt::NoModifier, point);
    if (twice) {
        QTest::mouseDClick(target, Qt::LeftButton, Qt::NoModifier, point);
    }
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

// Triggers the action of that text in any menu of the main window.
void trigger_action(const QWidget *main_window, const QString &text) {
    for (QAction *action : main_window->findChildren<QAction *>()) {
        if (action->text().remove(u'&') == text) {
            action->trigger();
            return;
        }
    }
}

// Docks the dock widget at an area of the main window's, makes it float somewhere, or puts another
// one's tab before it.
void place_dock(QWidget *widget, int area) {
    auto *dock = qobject_cast<QDockWidget *>(widget);
    auto *window = dock ? qobject_cast<QMainWindow *>(dock->parentWidget()) : nullptr;
    if (!window) {
        return;
    }
    if (area > 0) {
        window->addDockWidget(static_cast<Qt::DockWidgetArea>(area), dock);
    } else if (area == kBelowAnother) {
        auto *other = window->findChild<QDockWidget *>(QStringLiteral("controlsDock"));
        window->tabifyDockWidget(dock, other);
        other->raise();
    }
    dock->setFloating(area == kFloating);
    if (dock->isFloating()) {
        dock->setGeometry(500, 150, 300, 640);
    }
}

void act(const QString &what, const QJsonObject &request, QWidget *widget) {
    if (what == "click") {
        click(widget, request["row"].toInt(-1), request["twice"].toBool());
    } else if (what == "type") {
        type_text(widget, request["text"].toString());
    } else if (what == "place") {
        place_dock(widget, request["area"].toInt());
    } else if (what == "action") {
        trigger_action(widget, request["text"].toString());
    }
}

// The longest standstill of the event loop since the last call.
qint64 take_longest_pause_ms() {
    static qint64 longest_ms = 0;
    static QElapsedTimer since;
    static QTimer *timer = nullptr;
    if (!timer) {
        timer = new QTimer(QCoreApplication::instance());
        QObject::connect(
            timer, &QTimer::timeout, [] { longest_ms = std::max(longest_ms, since.restart()); });
        since.start();
        timer->start(1);
    }
    longest_ms = std::max(longest_ms, since.restart());
    return std::exchange(longest_ms, 0);
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

QJsonObject answer(const QJsonObject &request) {
    const QString what = request["do"].toString();
    if (what == "request") {
        return call_websocket(request);
    }
    if (what == "windows") {
        return {{"windows", describe_windows()}};
    }
    if (what == "longest_pause") {
        return {{"ms", take_longest_pause_ms()}};
    }
    const QPointer<QWidget> widget = what == "action"
                                         ? static_cast<QWidget *>(obs_frontend_get_main_window())
                                         : find_requested(request);
    if (!widget || what == "look") {
        return {{"found", !widget.isNull()}, {"widget", widget ? describe(widget) : QJsonObject()}};
    }
    const auto action = [what, request, widget] {
        if (widget) {
            act(what, request, widget);
        }
    };
    QMetaObject::invokeMethod(QCoreApplication::instance(), action, Qt::QueuedConnection);
    return {{"found", true}};
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
