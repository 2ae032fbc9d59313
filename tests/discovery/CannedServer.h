#pragma once

#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QString>
#include <QTcpServer>
#include <QTcpSocket>

// A one-trick HTTP server on 127.0.0.1 for the faults the fixture site cannot make: it answers
// every request with the same raw bytes (or never answers), then closes the connection.
// Runs on the test's own event loop, so it serves while a test awaits a coroutine.
class CannedServer {
public:
    enum Behaviour { Answer, Silent, RedirectToSelf };

    explicit CannedServer(Behaviour behaviour, QByteArray answer = {}) : m_behaviour(behaviour), m_answer(std::move(answer)) {
        m_server.listen(QHostAddress::LocalHost, 0);
        QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] {
            while (QTcpSocket *socket = m_server.nextPendingConnection()) {
                QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
                QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { serve(socket); });
            }
        });
    }

    QString url(const QString &path) const {
        return QStringLiteral("http://127.0.0.1:") + QString::number(m_server.serverPort()) + path;
    }
    int requestCount() const { return m_requests; }

    static QByteArray status(int code, const QByteArray &body = "oops") {
        return "HTTP/1.1 " + QByteArray::number(code) + " Whatever\r\nContent-Type: text/plain\r\nContent-Length: " +
               QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
    }

private:
    void serve(QTcpSocket *socket) {
        QByteArray &buffer = m_buffers[socket];
        buffer += socket->readAll();
        if (!buffer.contains("\r\n\r\n"))
            return;
        ++m_requests;
        m_buffers.remove(socket);
        switch (m_behaviour) {
        case Silent:
            return; // hold the connection open and say nothing
        case RedirectToSelf:
            socket->write("HTTP/1.1 302 Found\r\nLocation: /loop\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
            break;
        case Answer:
            socket->write(m_answer);
            break;
        }
        socket->disconnectFromHost();
    }

    Behaviour m_behaviour;
    QByteArray m_answer;
    QTcpServer m_server;
    QHash<QTcpSocket *, QByteArray> m_buffers;
    int m_requests = 0;
};
