#ifndef DOWNLOADER_H
#define DOWNLOADER_H

#include <QFile>
#include <QList>
#include <QNetworkAccessManager>
#include <QObject>
#include <QString>
#include <QUrl>

class QNetworkReply;

// Whether the file at path has the SHA-256 digest sha256 (hex, either case).
// False, with *reason saying so for the user and naming the file, when it has
// another or cannot be read.
bool fileMatchesSha256(const QString &path, const QString &sha256, QString *reason);

// Fetches a list of files into the firmware folder, strictly one after the
// other. Failed downloads are not reported: the files are judged later, by
// their published digests where there are any and by the firmware upgrade.
class Downloader : public QObject
{
    Q_OBJECT
public:
    struct Task
    {
        QUrl url;
        QString filePath;
        QString fileName;
        QString sha256; // the published digest, empty for none
    };

    explicit Downloader(QObject *parent = nullptr);
    ~Downloader() override;

    static QString firmwareDir();
    // Also forgets the files fetched into it.
    void clearFirmwareDir();
    // sha256: the file's published SHA-256 digest, if any; kept with the task.
    void addUrl(const QUrl &url, const QString &sha256 = QString());
    // The downloads taken from the list since the folder was last cleared,
    // in order: where each file went and its digest.
    const QList<Task> &fetchedTasks() const { return fetched; }
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
    QList<Task> fetched;
    QNetworkReply *reply = nullptr;
    QFile file;
    QString currentFileName;
};

#endif // DOWNLOADER_H
