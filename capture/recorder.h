#ifndef RECORDER_H
#define RECORDER_H

#include <QByteArray>
#include <QFile>
#include <QFileInfo>
#include <QObject>
#include <QString>
#include <QTimer>

// The live capture: every received box frame goes into a pcapng file in one
// folder. Frames are gathered in memory and written at 64 KiB or once a second,
// so a crash loses at most the last second. The capture files in the folder
// together stay within a size limit; the oldest go first.
class CaptureRecorder : public QObject
{
    Q_OBJECT
public:
    explicit CaptureRecorder(const QString &folder, QObject *parent = nullptr);
    ~CaptureRecorder() override;

    static constexpr qint64 defaultLimitBytes = 2048LL * 1024 * 1024;
    void setLimitBytes(qint64 bytes) { limit = bytes; }
    qint64 limitBytes() const { return limit; }

    // Closes the current file and starts a new one; clears an earlier failure.
    bool start();
    // Starts a file when none is open, unless recording failed.
    void record(qint64 timeUs, const QByteArray &frame);
    // Writes what is gathered; false when recording has failed.
    bool flush();
    // Closes the file; the next start() or record() opens a new one.
    void stop();

    QString currentFile() const { return file.isOpen() ? file.fileName() : QString(); }
    // Named apart from the signal, so that &CaptureRecorder::failed needs no qOverload.
    bool hasFailed() const { return broken; }

    // Now, in microseconds since the epoch (UTC).
    static qint64 nowUs();

signals:
    // Once per failure; recording stays off until start().
    void failed(const QString &reason);

private:
    QString folder;
    QFile file;
    QTimer flushTimer;
    QByteArray pending;
    qint64 limit = defaultLimitBytes;
    qint64 fileBytes = 0;    // on disk in the current file
    qint64 folderBytes = 0;  // on disk in all capture files, the current one included
    QFileInfoList olderFiles; // oldest first, the current one left out; sizes as counted
    bool broken = false;
    QString lastStamp; // of the last file started, and its number
    int lastNumber = 0;

    bool openNext();
    bool writePending();
    bool writeAll(const QByteArray &bytes);
    void makeRoom(qint64 bytes);
    void removeOldest(qint64 bytes);
    void countFolder();
    void closeFile();
    void fail(const QString &reason);
};

#endif // RECORDER_H
