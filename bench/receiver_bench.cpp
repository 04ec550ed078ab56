// Box frames per second through the frame receiver alone: the bytes as the
// port hands them over, cut into frames, checked and dispatched, with the lamp
// and the watchdog done for every frame, but no line rendered. Times are the
// GUI thread's CPU time, so a busy machine does not blur them.
#include "benchsupport.h"

#include "app/mainwindow.h"
#include "link/frame.h"
#include "settings/settings.h"

#include <QApplication>
#include <QComboBox>
#include <QCoreApplication>
#include <QSettings>

#include <cstdio>
#include <ctime>

namespace {

using namespace Bench;

constexpr int frameCount = 200000;

// An MDB POLL as a bus-data frame, 22 bytes.
QByteArray pollFrame(quint32 tick, int mode)
{
    QByteArray body;
    for (quint32 t : {tick, tick + 2})
        for (int shift = 24; shift >= 0; shift -= 8)
            body.append(char((t >> shift) & 0xFF));
    body.append(char(0));
    body.append(char(mode));
    body.append(QByteArray::fromHex("0B010B00"));
    return BoxFrame::build(BoxFrame::KindBusData, body);
}

// The stream cut into the chunks a read would return.
QList<QByteArray> chunked(const QByteArray &stream, int chunkSize)
{
    QList<QByteArray> out;
    for (qsizetype at = 0; at < stream.size(); at += chunkSize)
        out.append(stream.mid(at, chunkSize));
    return out;
}

void run(MainWindow &w, const char *what, const QList<QByteArray> &chunks, int frames, qint64 bytes)
{
    const double start = threadCpuSeconds();
    for (const QByteArray &chunk : chunks)
        w.receive(chunk);
    const double seconds = threadCpuSeconds() - start;
    const double rate = frames / seconds;
    std::printf("%-46s %9.0f frames/s %6.2f us a frame %8.1f x link limit (%.0f x its bytes/s)\n", what, rate,
                1e6 * seconds / frames, rate / linkFramesPerSecond, (bytes / seconds) / linkBytesPerSecond);
}

} // namespace

int main(int argc, char **argv)
{
    useOffscreen();
    QApplication app(argc, argv);
    quietWindowSettings();
    MainWindow w;
    w.show();
    app.processEvents();
    // The frames say mode 1 while the window listens for MDB: each one is
    // cut, checked and dispatched, then dropped before any renderer.
    w.settings->comboBoxInterpret->setCurrentIndex(0);

    QByteArray stream;
    for (int i = 0; i < frameCount; ++i)
        stream += pollFrame(quint32(i) * 4, 1);
    std::printf("%d bus-data frames of %lld bytes; link limit %.0f frames/s, %.0f bytes/s\n", frameCount,
                static_cast<long long>(stream.size() / frameCount), linkFramesPerSecond, linkBytesPerSecond);

    run(w, "one read per frame", chunked(stream, int(stream.size() / frameCount)), frameCount, stream.size());
    run(w, "reads of 64 bytes (frames cut across reads)", chunked(stream, 64), frameCount, stream.size());
    run(w, "reads of 4096 bytes", chunked(stream, 4096), frameCount, stream.size());

    // Kind 0x00, eight bytes: the framing and the lamp with nothing to dispatch.
    QByteArray empty;
    for (int i = 0; i < frameCount; ++i)
        empty += BoxFrame::build(BoxFrame::KindNone);
    run(w, "8-byte no-action frames, reads of 4096 bytes", chunked(empty, 4096), frameCount, empty.size());

    // A frame with a bad check byte costs its length and a debug line.
    QByteArray bad = stream;
    for (qsizetype at = 19; at < bad.size(); at += 22)
        bad[at] = char(bad.at(at) ^ 0xFF);
    run(w, "bad FCC, reads of 4096 bytes", chunked(bad, 4096), frameCount, bad.size());
    return 0;
}
