#ifndef HTTPSERVER_H
#define HTTPSERVER_H

#include <QHash>
#include <QHostAddress>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>

#include <memory>

// A small HTTP/1.1 server on 127.0.0.1 for the update tests: GET from a table
// of paths, one request per connection, unknown paths get a 404 page.
class HttpServer : public QTcpServer
{
public:
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
    // sendLength false: no Content-Length, the body ends when the connection closes.
    void setPage(const QString &path, const QByteArray &body, int status = 200, bool sendLength = true)
    {
        pages[path] = Page{status, body, sendLength};
    }

    QStringList requests; // paths in the order they were asked for

private:
    struct Page
    {
        int status = 404;
        QByteArray body = "<html>no such page</html>";
        bool sendLength = true;
    };

    void accept(QTcpSocket *socket)
    {
        auto buffer = std::make_shared<QByteArray>();
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QTcpSocket::readyRead, socket, [this, socket, buffer] {
            buffer->append(socket->readAll());
            if (!buffer->contains("\r\n\r\n"))
                return;
            const QString path = QString::fromLatin1(buffer->left(buffer->indexOf("\r\n")).split(' ').value(1));
            buffer->clear();
            requests << path;
            answer(socket, path);
        });
    }

    void answer(QTcpSocket *socket, const QString &path)
    {
        const Page page = pages.value(path);
        QByteArray head = "HTTP/1.1 " + QByteArray::number(page.status) + (page.status == 200 ? " OK" : " Not Found")
            + "\r\nContent-Type: application/octet-stream\r\nConnection: close\r\n";
        if (page.sendLength)
            head += "Content-Length: " + QByteArray::number(page.body.size()) + "\r\n";
        socket->write(head + "\r\n" + page.body);
        socket->disconnectFromHost();
    }

    QHash<QString, Page> pages;
};

#endif // HTTPSERVER_H
