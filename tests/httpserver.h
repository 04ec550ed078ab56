#ifndef HTTPSERVER_H
#define HTTPSERVER_H

#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QPointer>
#include <QSet>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>

#include <memory>
#include <utility>

// A small HTTP/1.1 server on 127.0.0.1 for the update tests. It answers GET
// requests from a table of paths, one request per connection, and records
// the paths asked for. Unknown paths get a 404 page.
class HttpServer : public QTcpServer
{
public:
    struct Page
    {
        int status = 200;
        QByteArray body;
        bool sendLength = true; // false: no Content-Length, end by closing
    };

    HttpServer()
    {
        if (!listen(QHostAddress::LocalHost, 0))
            qFatal("test http server cannot listen");
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = nextPendingConnection())
                accept(socket);
        });
    }

    QString base() const { return QStringLiteral("http://127.0.0.1:%1").arg(serverPort()); }
    QString url(const QString &path) const { return base() + path; }

    void setPage(const QString &path, const QByteArray &body, int status = 200, bool sendLength = true)
    {
        pages[path] = Page{status, body, sendLength};
    }
    // Requests for this path wait for release(path).
    void hold(const QString &path) { held.insert(path); }
    void release(const QString &path)
    {
        held.remove(path);
        const auto waiting = std::exchange(waitingRequests, {});
        for (const auto &w : waiting) {
            if (w.second != path)
                waitingRequests.append(w);
            else if (w.first)
                answer(w.first, w.second);
        }
    }

    QStringList requests;

private:
    void accept(QTcpSocket *socket)
    {
        auto buffer = std::make_shared<QByteArray>();
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QTcpSocket::readyRead, socket, [this, socket, buffer] {
            buffer->append(socket->readAll());
            if (!buffer->contains("\r\n\r\n") || buffer->isEmpty())
                return;
            const QList<QByteArray> requestLine = buffer->left(buffer->indexOf("\r\n")).split(' ');
            buffer->clear();
            const QString path = requestLine.size() >= 2 ? QString::fromLatin1(requestLine.at(1)) : QString();
            requests << path;
            if (held.contains(path))
                waitingRequests.append({QPointer<QTcpSocket>(socket), path});
            else
                answer(socket, path);
        });
    }

    void answer(QTcpSocket *socket, const QString &path)
    {
        const Page page = pages.value(path, Page{404, "<html>no such page</html>", true});
        QByteArray head = "HTTP/1.1 " + QByteArray::number(page.status)
            + (page.status == 200 ? " OK" : page.status == 404 ? " Not Found" : " Error") + "\r\n";
        head += "Content-Type: application/octet-stream\r\nConnection: close\r\n";
        if (page.sendLength)
            head += "Content-Length: " + QByteArray::number(page.body.size()) + "\r\n";
        socket->write(head + "\r\n" + page.body);
        socket->disconnectFromHost();
    }

    QHash<QString, Page> pages;
    QSet<QString> held;
    QList<std::pair<QPointer<QTcpSocket>, QString>> waitingRequests;
};

#endif // HTTPSERVER_H
