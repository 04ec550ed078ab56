#include "update/downloader.h"
#include "app/paths.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QNetworkReply>
#include <QNetworkRequest>

Downloader::Downloader(QObject *parent)
    : QObject(parent)
{
    QDir(firmwareDir()).mkpath(QStringLiteral("."));
}

Downloader::~Downloader()
{
    // The reply dies with `manager`, after the members it writes to; make
    // sure it can no longer reach them.
    if (reply)
        reply->disconnect(this);
}

QString Downloader::firmwareDir()
{
    return userPath(Place::Firmware);
}

void Downloader::clearFirmwareDir()
{
    QDir dir(firmwareDir());
    const QStringList names = dir.entryList(QDir::Files);
    for (const QString &name : names)
        dir.remove(name);
}

void Downloader::addUrl(const QUrl &url)
{
    Task task;
    task.url = url;
    task.fileName = url.fileName(QUrl::FullyDecoded);
    task.filePath = firmwareDir() + "/" + task.fileName;
    tasks.append(task);
}

void Downloader::start()
{
    if (reply) {
        qDebug() << "download already running";
        return;
    }
    if (tasks.isEmpty()) {
        emit allFinished();
        return;
    }
    const Task task = tasks.takeFirst();
    currentFileName = task.fileName;
    file.setFileName(task.filePath);
    // An empty name or ".." names the folder and cannot be opened; the data
    // of that download is then dropped and the list goes on. A decoded NUL
    // would cut the name short and write another file, so it is dropped too.
    if (!currentFileName.contains(QChar(0)))
        file.open(QIODevice::WriteOnly);

    reply = manager.get(QNetworkRequest(task.url));
    connect(reply, &QNetworkReply::readyRead, this, &Downloader::writeArrived);
    connect(reply, &QNetworkReply::finished, this, &Downloader::onFinished);
    connect(reply, &QNetworkReply::downloadProgress, this, &Downloader::onDownloadProgress);
}

void Downloader::writeArrived()
{
    const QByteArray data = reply->readAll();
    if (file.isOpen())
        file.write(data);
}

void Downloader::onFinished()
{
    writeArrived();
    file.close();
    reply->deleteLater();
    reply = nullptr;
    start();
}

void Downloader::onDownloadProgress(qint64 received, qint64 total)
{
    // Without a length from the server the network module still reports one
    // with its last progress; keep saying "unknown" so that nobody shows 100%
    // for a download that may have been cut off.
    if (reply && !reply->header(QNetworkRequest::ContentLengthHeader).isValid())
        total = -1;
    emit progress(currentFileName, received, total);
}
