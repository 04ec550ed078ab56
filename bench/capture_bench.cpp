// What the live capture file costs next to the log line every MDB frame gets
// anyway: CaptureRecorder::record with real writes to a temporary folder and
// a flush per second's worth of frames at the link limit, against
// MDB::renderLine for the same frames. Times are the thread's CPU time, the
// system calls for the writes included.
#include "benchsupport.h"

#include "capture/recorder.h"
#include "link/frame.h"
#include "mdb/mdb.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QVector>

#include <cstdio>

namespace {

using namespace Bench;

constexpr int frameCount = 200000;
constexpr int passes = 3;

// A bus-data frame of 9-bit bytes: the mode bit on the first byte of a VMC
// command, on the last of a peripheral's reply (an ACK alone is both), and a
// checksum after all but an ACK.
QByteArray mdbMessage(quint32 &tick, int direction, const char *hex, bool ack = false)
{
    QByteArray data = QByteArray::fromHex(hex);
    unsigned char sum = 0;
    for (char c : data)
        sum = static_cast<unsigned char>(sum + static_cast<unsigned char>(c));
    if (!ack)
        data.append(char(sum));
    // The VMC marks its command byte, a peripheral its last byte.
    const qsizetype marked = direction == 0 ? (ack ? -1 : 0) : data.size() - 1;
    return Bench::mdbFrame(tick, direction, data, marked);
}

// Idle polling with a coin deposited now and then and a coin changer SETUP.
QVector<QByteArray> mdbMix()
{
    QVector<QByteArray> frames;
    quint32 tick = 1000;
    for (int round = 0; frames.size() < frameCount; ++round) {
        frames << mdbMessage(tick, 0, "0B") << mdbMessage(tick, 1, "00", true);
        if (round % 4 == 1) // a coin deposited, ACKed
            frames << mdbMessage(tick, 0, "0B") << mdbMessage(tick, 1, "52") << mdbMessage(tick, 0, "00", true);
        if (round % 16 == 3)
            frames << mdbMessage(tick, 0, "09") << mdbMessage(tick, 1, "0318400A0203000102050A143264C80000000000000000")
                   << mdbMessage(tick, 0, "00", true);
    }
    frames.resize(frameCount);
    return frames;
}

double recordingSeconds(const QVector<QByteArray> &frames)
{
    QTemporaryDir dir;
    CaptureRecorder recorder(dir.path());
    // The receiver reads the clock once per chunk of bytes, not per frame.
    const qint64 now = CaptureRecorder::nowUs();
    const double start = threadCpuSeconds();
    for (int i = 0; i < frames.size(); ++i) {
        recorder.record(now + i, frames.at(i));
        if (i % int(linkFramesPerSecond) == 0)
            recorder.flush(); // what the one-second timer does at the link limit
    }
    recorder.stop();
    return threadCpuSeconds() - start;
}

double renderingSeconds(const QVector<QByteArray> &frames, qint64 *characters)
{
    MDB mdb(nullptr);
    quint32 lastTickEnd = 0;
    int lastCmd = 8888;
    *characters = 0;
    const double start = threadCpuSeconds();
    for (const QByteArray &f : frames)
        *characters += mdb.renderLine(f, MDB::Filters{}, true, lastTickEnd, lastCmd).size();
    return threadCpuSeconds() - start;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QVector<QByteArray> frames = mdbMix();
    qint64 bytes = 0;
    for (const QByteArray &f : frames)
        bytes += f.size();
    std::printf("MDB mix: %d bus-data frames, %.1f bytes a frame\n", frameCount, double(bytes) / frameCount);

    // The best of a few passes: the other work on the machine only adds.
    double recording = 1e9;
    double rendering = 1e9;
    qint64 characters = 0;
    for (int i = 0; i < passes; ++i) {
        recording = qMin(recording, recordingSeconds(frames));
        rendering = qMin(rendering, renderingSeconds(frames, &characters));
    }
    reportPerFrame("CaptureRecorder::record, file writes included", recording, frameCount);
    reportPerFrame("MDB::renderLine", rendering, frameCount);
    std::printf("  %.0f characters a line\n", double(characters) / frameCount);
    std::printf("recording/rendering: %.1f %% (target < 5 %%)\n", 100.0 * recording / rendering);
    return 0;
}
