// Throughput of the MDB analyser on a recorded-like session: the line builder
// alone, then packageProcess with the real log view (offscreen).
#include "benchsupport.h"

#include "app/mainwindow.h"
#include "link/frame.h"
#include "mdb/mdb.h"
#include "ui_mainwindow.h"

#include <QApplication>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QSettings>
#include <QTextBrowser>
#include <QVector>

#include <cstdio>
#include <unistd.h>

namespace {

using namespace Bench;

constexpr int minimumMessages = 100000;

enum Mark { NoMark, FirstMark, LastMark };

class Session
{
public:
    QVector<QByteArray> frames;

    // A VMC command: mode bit on the first byte, checksum appended.
    void command(const char *hex, quint32 gap = 2) { add(gap, 0, withChecksum(hex), FirstMark); }
    // A peripheral's reply: mode bit on the last byte, checksum appended.
    void reply(const char *hex, quint32 gap = 2) { add(gap, 1, withChecksum(hex), LastMark); }
    void peripheralAck(quint32 gap = 1) { add(gap, 1, QByteArray(1, 0), FirstMark); }
    void vmcAck(quint32 gap = 1) { add(gap, 0, QByteArray(1, 0), NoMark); }

private:
    quint32 tick = 1000;

    static QByteArray withChecksum(const char *hex)
    {
        QByteArray data = QByteArray::fromHex(hex);
        unsigned char sum = 0;
        for (char c : data)
            sum = static_cast<unsigned char>(sum + static_cast<unsigned char>(c));
        return data + char(sum);
    }

    void add(quint32 gap, int direction, const QByteArray &data, Mark mark)
    {
        const quint32 start = tick + gap;
        // About one tick per 9-bit byte at 9600 baud.
        tick = start + quint32(data.size());
        QByteArray body;
        for (quint32 t : {start, tick})
            for (int shift = 24; shift >= 0; shift -= 8)
                body.append(char((t >> shift) & 0xFF));
        body.append(char(direction));
        body.append(char(0)); // MDB mode
        for (int i = 0; i < data.size(); ++i) {
            body.append(data.at(i));
            body.append(char((mark == FirstMark && i == 0) || (mark == LastMark && i == data.size() - 1)));
        }
        frames.append(BoxFrame::build(BoxFrame::KindBusData, body));
    }
};

// Idle polling of three peripherals with a coin inserted, a bill escrowed, a
// cashless vend and the power-up setup now and then, as a machine's log shows.
QVector<QByteArray> buildSession()
{
    Session s;
    for (int round = 0; s.frames.size() < minimumMessages; ++round) {
        if (round % 400 == 0) {
            s.command("08");
            s.peripheralAck();
            s.command("09");
            s.reply("0318400A0203000102050A143264C80000000000000000");
            s.vmcAck();
            s.command("0F00");
            s.reply("414243534E303030303030303034324D4F44454C2D582030303031981200000003");
            s.vmcAck();
            s.command("0F05");
            s.reply("03001110");
            s.vmcAck();
            s.command("31");
            s.reply("01184000050201F40102FF0102050A143264C80000000000000000");
            s.vmcAck();
            s.command("110002100209");
            s.reply("010218400102050B");
            s.vmcAck();
            s.command("170400000003");
            s.peripheralAck();
        }
        s.command("0B");
        if (round % 40 == 7) {
            s.reply("52"); // coin deposited
            s.vmcAck();
            s.command("0A");
            s.reply("0003050C000000000000000000000000000000");
            s.vmcAck();
            s.command("0CFFFF0000");
            s.peripheralAck();
        } else {
            s.peripheralAck(round % 97 == 0 ? 7 : 1); // now and then a late one
        }
        s.command("33");
        if (round % 60 == 11) {
            s.reply("90");
            s.vmcAck();
            s.command("3501");
            s.peripheralAck();
            s.command("33");
            s.reply("80");
            s.vmcAck();
            s.command("36");
            s.reply("0123");
            s.vmcAck();
        } else {
            s.peripheralAck();
        }
        s.command("12");
        if (round % 100 == 50) {
            s.reply("030064FFFFFFFF010000");
            s.vmcAck();
            s.command("1300003C0001");
            s.peripheralAck();
            s.command("12");
            s.reply("05003C");
            s.vmcAck();
            s.command("13020001");
            s.peripheralAck();
            s.command("1304");
            s.peripheralAck();
            s.command("12");
            s.reply("07");
            s.vmcAck();
        } else {
            s.peripheralAck();
        }
    }
    return s.frames;
}

struct Pass
{
    int shown = 0;
    qint64 characters = 0;
    double seconds = 0;
};

Pass lineBuilderPass(const QVector<QByteArray> &frames, const MDB::Filters &filters)
{
    MDB mdb(nullptr);
    quint32 lastTickEnd = 0;
    int lastCmd = 8888;
    Pass p;
    QElapsedTimer timer;
    timer.start();
    for (const QByteArray &f : frames) {
        const QString line = mdb.renderLine(f, filters, true, lastTickEnd, lastCmd);
        if (!line.isNull()) {
            ++p.shown;
            p.characters += line.size();
        }
    }
    p.seconds = timer.nsecsElapsed() / 1e9;
    return p;
}

void report(const char *what, int messages, double seconds)
{
    const double rate = messages / seconds;
    std::printf("%-44s %8d msgs %8.3f s %12.0f msgs/s  %8.1f x link limit\n", what, messages, seconds, rate,
                rate / linkFramesPerSecond);
}

} // namespace

int main(int argc, char **argv)
{
    useOffscreen();
    QApplication app(argc, argv);
    quietWindowSettings();

    const QVector<QByteArray> frames = buildSession();
    qint64 bytes = 0;
    for (const QByteArray &f : frames)
        bytes += f.size();
    std::printf("MDB session: %lld messages, %lld box-frame bytes (%.1f bytes a frame)\n",
                static_cast<long long>(frames.size()), static_cast<long long>(bytes), double(bytes) / frames.size());

    const Pass all = lineBuilderPass(frames, MDB::Filters());
    report("line builder, all shown", int(frames.size()), all.seconds);
    MDB::Filters noPoll;
    noPoll.poll = false;
    const Pass filtered = lineBuilderPass(frames, noPoll);
    report("line builder, Poll unchecked", int(frames.size()), filtered.seconds);
    std::printf("  shown %d of %lld with Poll unchecked; %.0f characters a line\n", filtered.shown,
                static_cast<long long>(frames.size()), double(all.characters) / all.shown);

    MainWindow w;
    w.show();
    app.processEvents();
    QTextBrowser *view = w.ui->textBrowserParsed;
    const long rssBefore = rssBytes();
    QElapsedTimer timer;
    timer.start();
    for (const QByteArray &f : frames)
        w.mdb->packageProcess(f);
    app.processEvents();
    const double seconds = timer.nsecsElapsed() / 1e9;
    const long rssAfter = rssBytes();
    report("packageProcess into the log view", int(frames.size()), seconds);
    const int lines = view->document()->blockCount();
    std::printf("  log view holds %d lines; RSS %.1f MiB -> %.1f MiB, %.0f bytes a shown line\n", lines,
                rssBefore / 1048576.0, rssAfter / 1048576.0, double(rssAfter - rssBefore) / qMax(1, lines));
    return 0;
}
