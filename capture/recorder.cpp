#include "capture/recorder.h"

#include "capture/pcapng.h"

#include <QDateTime>
#include <QDir>

#include <algorithm>
#include <chrono>
#include <tuple>

namespace {

constexpr qint64 writeThreshold = 64 * 1024;
// Room for the threshold plus the largest box frame as a packet, so that
// recording never grows the buffer.
constexpr qint64 bufferCapacity = writeThreshold + 65535 + 36;
constexpr int flushIntervalMs = 1000;

QString namePattern()
{
    return QStringLiteral("capture_*.pcapng");
}

// Names are capture_yyyyMMdd_HHmmss[_n].pcapng: name order is time order once
// the n of files started in the same second is compared as a number.
bool olderName(const QFileInfo &a, const QFileInfo &b)
{
    const auto key = [](const QString &name) {
        constexpr int timeLength = 23; // "capture_yyyyMMdd_HHmmss"
        const QString stem = name.chopped(qMin<qsizetype>(name.size(), 7));
        bool numbered = false;
        const qint64 n = stem.mid(timeLength + 1).toLongLong(&numbered);
        return std::make_tuple(stem.left(timeLength), numbered ? n : -1, name);
    };
    return key(a.fileName()) < key(b.fileName());
}

QString problem(const char *verb, const QFile &file)
{
    return QStringLiteral("cannot %1 %2: %3")
        .arg(QLatin1String(verb), QDir::toNativeSeparators(file.fileName()), file.errorString());
}

qint64 headerBytes()
{
    static const qint64 size = Pcapng::header().size();
    return size;
}

} // namespace

CaptureRecorder::CaptureRecorder(const QString &folder, QObject *parent)
    : QObject(parent), folder(folder), flushTimer(this)
{
    flushTimer.setInterval(flushIntervalMs);
    connect(&flushTimer, &QTimer::timeout, this, &CaptureRecorder::flush);
}

CaptureRecorder::~CaptureRecorder()
{
    stop();
}

bool CaptureRecorder::start()
{
    closeFile();
    broken = false;
    return openNext();
}

void CaptureRecorder::record(qint64 timeUs, const QByteArray &frame)
{
    if (!file.isOpen() && (broken || !openNext()))
        return;
    Pcapng::appendPacket(pending, timeUs, frame);
    if (pending.size() >= writeThreshold)
        writePending();
}

bool CaptureRecorder::flush()
{
    // The file is unbuffered: once written, the bytes are the system's.
    return writePending();
}

void CaptureRecorder::stop()
{
    closeFile();
}

qint64 CaptureRecorder::nowUs()
{
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

bool CaptureRecorder::openNext()
{
    if (!QDir().mkpath(folder)) {
        fail(QStringLiteral("cannot create the capture folder %1").arg(QDir::toNativeSeparators(folder)));
        return false;
    }
    const QDir dir(folder);
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd_HHmmss"));
    // Within one second the numbers only go up, even past a file already
    // deleted, so that name order stays time order.
    int n = stamp == lastStamp ? lastNumber + 1 : 0;
    for (;; ++n) {
        const QString suffix = n == 0 ? QString() : QStringLiteral("_%1").arg(n);
        file.setFileName(dir.filePath(QStringLiteral("capture_%1%2.pcapng").arg(stamp, suffix)));
        if (file.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered))
            break;
        if (!file.exists()) {
            fail(problem("create", file));
            return false;
        }
    }
    lastStamp = stamp;
    lastNumber = n;
    if (!writeAll(Pcapng::header()))
        return false;
    fileBytes = headerBytes();
    pending.reserve(bufferCapacity);
    countFolder();
    flushTimer.start();
    return true;
}

void CaptureRecorder::countFolder()
{
    const QString current = QFileInfo(file.fileName()).fileName();
    olderFiles.clear();
    folderBytes = fileBytes;
    const QFileInfoList infos = QDir(folder).entryInfoList({namePattern()}, QDir::Files);
    for (const QFileInfo &info : infos) {
        if (info.fileName() == current)
            continue;
        olderFiles.append(info);
        folderBytes += info.size();
    }
    std::sort(olderFiles.begin(), olderFiles.end(), olderName);
}

bool CaptureRecorder::writePending()
{
    if (!file.isOpen() || pending.isEmpty())
        return !broken;
    makeRoom(pending.size());
    if (!file.isOpen())
        return false; // the new file could not be started
    if (!writeAll(pending))
        return false;
    fileBytes += pending.size();
    folderBytes += pending.size();
    pending.resize(0); // keeps the capacity
    return true;
}

bool CaptureRecorder::writeAll(const QByteArray &bytes)
{
    // A short write says nothing; writing the rest brings out the system's reason.
    for (qint64 done = 0; done < bytes.size();) {
        const qint64 n = file.write(bytes.constData() + done, bytes.size() - done);
        if (n <= 0) {
            fail(problem("write", file));
            return false;
        }
        done += n;
    }
    return true;
}

// Keeps the folder within the limit once `bytes` more are written. No file
// grows past half the limit, so going on in a new file keeps the half before.
void CaptureRecorder::makeRoom(qint64 bytes)
{
    if (fileBytes + bytes > limit / 2 && fileBytes > headerBytes()) {
        file.close();
        if (!openNext())
            return;
    }
    removeOldest(bytes);
}

void CaptureRecorder::removeOldest(qint64 bytes)
{
    while (folderBytes + bytes > limit && !olderFiles.isEmpty()) {
        const QFileInfo gone = olderFiles.takeFirst();
        // One that went by other hands counts as removed; one we may not remove stays counted.
        if (QFile::remove(gone.filePath()) || !QFileInfo::exists(gone.filePath()))
            folderBytes -= gone.size();
    }
}

void CaptureRecorder::closeFile()
{
    if (!file.isOpen())
        return;
    writePending(); // a failure closes the file itself
    flushTimer.stop();
    file.close();
}

void CaptureRecorder::fail(const QString &reason)
{
    pending.resize(0);
    flushTimer.stop();
    file.close();
    if (broken)
        return;
    broken = true;
    emit failed(reason);
}
