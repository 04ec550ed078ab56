// What the bus insight costs next to the line every MDB frame gets anyway:
// BusInsight::addFrame against LineBuilder::line for the same frames, on a
// machine's traffic where polls dominate. Times are the thread's CPU time.
#include "benchsupport.h"

#include "insight/businsight.h"
#include "protocols/linebuilder.h"

#include <QCoreApplication>
#include <QVector>

#include <cstdio>

namespace {

using namespace Bench;

constexpr int frameCount = 200000;
constexpr int passes = 3;

// The VMC marks its command byte, a peripheral the last byte of its reply;
// an ACK (or NAK) carries no checksum.
QByteArray command(quint32 &tick, const char *hex)
{
    QByteArray data = QByteArray::fromHex(hex);
    unsigned char sum = 0;
    for (char c : data)
        sum = static_cast<unsigned char>(sum + static_cast<unsigned char>(c));
    return mdbFrame(tick, 0, data + char(sum), 0);
}

QByteArray reply(quint32 &tick, const char *hex)
{
    QByteArray data = QByteArray::fromHex(hex);
    unsigned char sum = 0;
    for (char c : data)
        sum = static_cast<unsigned char>(sum + static_cast<unsigned char>(c));
    data += char(sum);
    return mdbFrame(tick, 1, data, data.size() - 1);
}

QByteArray peripheralAck(quint32 &tick) { return mdbFrame(tick, 1, QByteArray(1, '\0'), 0); }
QByteArray vmcAck(quint32 &tick) { return mdbFrame(tick, 0, QByteArray(1, '\0'), -1); }

// Polls of the changer, the validator and the reader round after round; now
// and then a coin, a bill, a card sale, SETUPs.
QVector<QByteArray> machineMix()
{
    QVector<QByteArray> f;
    quint32 t = 1000;
    for (int round = 0; f.size() < frameCount; ++round) {
        f << command(t, "0B") << peripheralAck(t) << command(t, "33") << peripheralAck(t) << command(t, "12")
          << peripheralAck(t);
        if (round % 8 == 1)
            f << command(t, "0B") << reply(t, "523D") << vmcAck(t);
        if (round % 32 == 5)
            f << command(t, "33") << reply(t, "91") << vmcAck(t) << command(t, "3501") << peripheralAck(t)
              << command(t, "33") << reply(t, "81") << vmcAck(t);
        if (round % 64 == 9)
            f << command(t, "12") << reply(t, "0301F4000030390100 00") << vmcAck(t) << command(t, "1300 0096000C")
              << peripheralAck(t) << command(t, "12") << reply(t, "050096") << vmcAck(t) << command(t, "1302000C")
              << peripheralAck(t) << command(t, "1304") << peripheralAck(t) << command(t, "12") << reply(t, "07")
              << vmcAck(t);
        if (round % 256 == 17)
            f << command(t, "09") << reply(t, "03184005020007010205 0A14 0000000000000000000000") << vmcAck(t)
              << command(t, "31") << reply(t, "011840006402 01F40003FF 01050A14 000000000000000000000000") << vmcAck(t);
    }
    f.resize(frameCount);
    return f;
}

double linesSeconds(const QVector<QByteArray> &frames, qint64 *characters)
{
    LineBuilder builder;
    *characters = 0;
    const double start = threadCpuSeconds();
    for (const QByteArray &frame : frames)
        *characters += builder.line(frame).size();
    return threadCpuSeconds() - start;
}

double insightSeconds(const QVector<QByteArray> &frames, qint64 *rows)
{
    BusInsight insight;
    // The receiver reads the clock once per chunk of bytes, not per frame.
    qint64 now = 1795515300000000;
    const double start = threadCpuSeconds();
    for (const QByteArray &frame : frames)
        insight.addFrame(now += 1700, frame);
    const double seconds = threadCpuSeconds() - start;
    *rows = insight.money().rows.size();
    return seconds;
}

// The money table a view asks for when the timeline is full: coins only.
double fullTableSeconds(int *rows)
{
    BusInsight insight;
    quint32 t = 0;
    qint64 now = 1795515300000000;
    for (int i = 0; i < BusInsight::defaultTimelineLimit; ++i)
        for (const QByteArray &frame : {command(t, "0B"), reply(t, "523D"), vmcAck(t)})
            insight.addFrame(now += 1000, frame);
    const double start = threadCpuSeconds();
    *rows = int(insight.money().rows.size());
    return threadCpuSeconds() - start;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QVector<QByteArray> frames = machineMix();
    std::printf("MDB machine mix: %d bus-data frames, polls and their ACKs most of them\n", frameCount);

    // The best of a few passes: the other work on the machine only adds.
    double lines = 1e9;
    double insight = 1e9;
    qint64 characters = 0;
    qint64 rows = 0;
    for (int i = 0; i < passes; ++i) {
        lines = qMin(lines, linesSeconds(frames, &characters));
        insight = qMin(insight, insightSeconds(frames, &rows));
    }
    reportPerFrame("LineBuilder::line", lines, frameCount);
    reportPerFrame("BusInsight::addFrame", insight, frameCount);
    std::printf("  %lld money rows\n", static_cast<long long>(rows));
    std::printf("insight/lines: %.1f %% (target <= 10 %%)\n", 100.0 * insight / lines);
    int tableRows = 0;
    const double table = fullTableSeconds(&tableRows);
    std::printf("BusInsight::money() of a full timeline: %d rows in %.0f ms\n", tableRows, 1e3 * table);
    return 0;
}
