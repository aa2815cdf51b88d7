// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QNetworkProxy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>

#include <gtest/gtest.h>

#include <string>

namespace corvane::test {

// Stands in front of an RTMP server on loopback and keeps what is sent to it. Passes bytes on while
// the UI thread's event loop runs.
class Tap {
public:
    explicit Tap(const std::string &server)
        : url_(QString::fromStdString(server)) {
        listener_.setProxy(QNetworkProxy::NoProxy);
        EXPECT_TRUE(listener_.listen(QHostAddress::LocalHost));
        QObject::connect(&listener_, &QTcpServer::newConnection,
            [this, port = url_.port()] { pass_on(static_cast<quint16>(port)); });
        url_.setPort(listener_.serverPort());
    }

    std::string url() const { return url_.toString().toStdString(); }

    QByteArray sent;

private:
    void pass_on(quint16 port) {
        QTcpSocket *client = listener_.nextPendingConnection();
        auto *server = new QTcpSocket(client);
        server->setProxy(QNetworkProxy::NoProxy);
        server->connectToHost(QHostAddress::LocalHost, port);
        EXPECT_TRUE(server->waitForConnected());
        QObject::connect(client, &QTcpSocket::readyRead, server, [this, client, server] {
            const QByteArray bytes = client->readAll();
            sent += bytes;
            server->write(bytes);
        });
        QObject::connect(
            server, &QTcpSocket::readyRead, client, [=] { client->write(server->readAll()); });
        QObject::connect(
            client, &QTcpSocket::disconnected, server, &QTcpSocket::disconnectFromHost);
    }

    QUrl url_;
    QTcpServer listener_;
};

} // namespace corvane::test
