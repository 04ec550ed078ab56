// The log view as it fills: the cost of one appended MDB line when the view
// holds 10 000 lines against 200 000 (it must stay flat), and the memory a
// shown line takes once 200 000 are there. Times are the GUI thread's CPU.
#include "benchsupport.h"

#include "app/mainwindow.h"
#include "link/frame.h"
#include "mdb/mdb.h"
#include "ui_mainwindow.h"

#include <QApplication>
#include <QCoreApplication>
#include <QFile>
#include <QSettings>
#include <QTextBrowser>

#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace {

using namespace Bench;

constexpr int smallView = 10000;
constexpr int largeView = 200000;
constexpr int sample = 2000; // appends timed at each size

// The VMC's POLL and the changer's ACK, one line each, as a machine idles.
QByteArray frame(int i)
{
    const quint32 start = quint32(i) * 10;
    QByteArray body;
    for (quint32 t : {start, start + 2})
        for (int shift = 24; shift >= 0; shift -= 8)
            body.append(char((t >> shift) & 0xFF));
    body.append(char(i % 2));
    body.append(char(0));
    body.append(i % 2 ? QByteArray::fromHex("0001") : QByteArray::fromHex("0B010B00"));
    return BoxFrame::build(BoxFrame::KindBusData, body);
}

// Appends until the view holds `lines`; the last `timed` appends are timed.
double fillTo(QApplication &app, MainWindow &w, int &next, int lines, int timed)
{
    QTextBrowser *view = w.ui->textBrowserParsed;
    double seconds = 0;
    while (view->document()->blockCount() < lines) {
        const bool timing = view->document()->blockCount() >= lines - timed;
        const double start = timing ? threadCpuSeconds() : 0;
        w.mdb->packageProcess(frame(next++));
        if (timing)
            seconds += threadCpuSeconds() - start;
        // The window repaints now and then, as it would between arrivals.
        if (next % 1000 == 0)
            app.processEvents();
    }
    return seconds / timed;
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
    QTextBrowser *view = w.ui->textBrowserParsed;
    view->clear();
    app.processEvents();
    const long rssEmpty = rssBytes();

    int next = 0;
    const double atSmall = fillTo(app, w, next, smallView, sample);
    const double atLarge = fillTo(app, w, next, largeView, sample);
    app.processEvents();
    const long rssFull = rssBytes();
    const int lines = view->document()->blockCount();

    std::printf("one MDB line appended (packageProcess into the shown log view), mean of %d:\n", sample);
    std::printf("  at %6d lines: %8.1f us   = %8.0f lines/s, %7.1f x link limit\n", smallView, 1e6 * atSmall,
                1 / atSmall, 1 / atSmall / linkFramesPerSecond);
    std::printf("  at %6d lines: %8.1f us   = %8.0f lines/s, %7.1f x link limit\n", largeView, 1e6 * atLarge,
                1 / atLarge, 1 / atLarge / linkFramesPerSecond);
    std::printf("  200 000 against 10 000 lines: %.2f x the cost\n", atLarge / atSmall);
    std::printf("memory after %d lines: RSS %.1f MiB -> %.1f MiB, %.0f bytes a shown line\n", lines,
                rssEmpty / 1048576.0, rssFull / 1048576.0, double(rssFull - rssEmpty) / qMax(1, lines));
    return 0;
}
