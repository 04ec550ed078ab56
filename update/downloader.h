#ifndef DOWNLOADER_H
#define DOWNLOADER_H

#include <QFile>
#include <QList>
#include <QNetworkAccessManager>
#include <QObject>
#include <QString>
#include <QUrl>

class QNetworkReply;

// Fetches a list of files into the firmware folder, strictly one after the
// other. Failed downloads are not reported: the files are judged later by the
// firmware upgrade.
class Downloader : public QObject
{
    Q_OBJECT
public:
    struct Task
    {
        QUrl url;
        QString filePath;
        QString fileName;
    };

    explicit Downloader(QObject *parent = nullptr);
    ~Downloader() override;

    static QString firmwareDir();
    void clearFirmwareDir();
    void addUrl(const QUrl &url);
    // Call once after adding the list; not again while a download runs.
    void start();

signals:
    void progress(const QString &fileName, qint64 received, qint64 total);
    void allFinished();

private slots:
    void onFinished();
    void onDownloadProgress(qint64 received, qint64 total);

private:
    void writeArrived();

    QNetworkAccessManager manager;
    QList<Task> tasks;
    QNetworkReply *reply = nullptr;
    QFile file;
    QString currentFileName;
};

#endif // DOWNLOADER_H
