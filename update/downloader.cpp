#include "update/downloader.h"
#include "app/paths.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QNetworkReply>
#include <QNetworkRequest>

bool fileMatchesSha256(const QString &path, const QString &sha256, QString *reason)
{
    QString name = QFileInfo(path).fileName();
    if (name.isEmpty())
        name = path;
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    // A folder opens on some systems and then fails to read: both are refused here.
    if (!file.open(QIODevice::ReadOnly) || !hash.addData(&file)) {
        *reason = QString("%1 cannot be read (%2), so it cannot be checked against the published checksum.")
                      .arg(name, file.errorString());
        return false;
    }
    const QString actual = QString::fromLatin1(hash.result().toHex());
    if (actual.compare(sha256, Qt::CaseInsensitive) != 0) {
        *reason = QString("%1 does not match the published checksum.\nPublished SHA-256: %2\nSHA-256 of the file: %3")
                      .arg(name, sha256.toLower(), actual);
        return false;
    }
    return true;
}

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
    fetched.clear();
}

void Downloader::addUrl(const QUrl &url, const QString &sha256)
{
    Task task;
    task.url = url;
    task.sha256 = sha256;
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
    fetched.append(task);
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
