#ifndef DOWNLOADER_H
#define DOWNLOADER_H

#include <QObject>
#include <QString>
#include <QUrl>

class Downloader : public QObject
{
    Q_OBJECT
public:
    explicit Downloader(QObject *parent = nullptr);

    void clearFirmwareDir();
    void addUrl(const QUrl &url);
    void start();

signals:
    void progress(const QString &fileName, qint64 received, qint64 total);
    void allFinished();
};

#endif // DOWNLOADER_H
