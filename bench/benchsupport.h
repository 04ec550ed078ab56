#ifndef BENCHSUPPORT_H
#define BENCHSUPPORT_H

// What the benchmarks share: the link's limits, CPU time and memory readings,
// and a quiet window whose settings.ini never asks an update server.
#include "app/paths.h"
#include "link/frame.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QFile>
#include <QList>
#include <QSettings>

#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace Bench {

constexpr double linkBytesPerSecond = 11520.0; // 115200 baud, ten bits a byte
constexpr double linkFramesPerSecond = 576.0;  // minimal box frames of about 20 bytes

inline double threadCpuSeconds()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) / 1e9;
}

// One line of a per-frame timing: the rate and the time a frame.
inline void reportPerFrame(const char *what, double seconds, int frames)
{
    std::printf("%-46s %9.0f frames/s %7.3f us a frame\n", what, frames / seconds, 1e6 * seconds / frames);
}

inline long rssBytes()
{
    QFile statm("/proc/self/statm");
    if (!statm.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.size() > 1 ? fields[1].toLong() * sysconf(_SC_PAGESIZE) : 0;
}

// An MDB message as the box frames it: ticks that go on from `tick`, the
// direction, mode MDB, then every byte with its mode bit; `marked` is the
// byte whose bit is set, or -1.
inline QByteArray mdbFrame(quint32 &tick, int direction, const QByteArray &data, qsizetype marked)
{
    QByteArray body;
    body.reserve(10 + 2 * data.size());
    const quint32 start = tick + 2;
    tick = start + quint32(data.size());
    for (quint32 t : {start, tick})
        for (int shift = 24; shift >= 0; shift -= 8)
            body.append(char((t >> shift) & 0xFF));
    body.append(char(direction));
    body.append(char(0)); // MDB
    for (qsizetype i = 0; i < data.size(); ++i) {
        body.append(data.at(i));
        body.append(char(i == marked ? 1 : 0));
    }
    return BoxFrame::build(BoxFrame::KindBusData, body);
}

// Before the application object exists.
inline void useOffscreen()
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
}

// After it: the window's debug output is not what is measured.
inline void quietWindowSettings()
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    QSettings ini(userPath(Place::Settings), QSettings::IniFormat);
    ini.clear();
    ini.setValue("Update", false);
    ini.setValue("updateServer", "http://127.0.0.1:9");
}

} // namespace Bench

#endif // BENCHSUPPORT_H
