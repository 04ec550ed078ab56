// A long session on the real window, shown on an X display. A thread of this
// process plays the box on a pseudo-terminal that the window reads as it would
// read the USB-serial adapter. Figures: CPU and memory at the link's frame rate
// with an empty view and again after a million frames, memory on the way there,
// whether the capture kept every frame, the longest stall of the event loop at
// the link's rate until the full view is trimmed, and while multi-line SETUP
// replies pour in, the longest event: a read of the port with the lines it
// appends. The stall meter's 1 ms timer never runs while CPU is taken.
//
// CPU is the whole process's (getrusage) less the feeding thread's own
// (CLOCK_THREAD_CPUTIME_ID, read on that thread), so it is what the program
// itself spends; the X server's drawing is not in it.
//
// VENDSCOPE_SOAK_FRAMES (default 1000000) and VENDSCOPE_SOAK_SECONDS (default
// 30) shrink it for a quick try; the SETUP run shrinks with the frames, or
// takes VENDSCOPE_SOAK_SETUP exchanges.
#include "benchsupport.h"

#include "app/mainwindow.h"
#include "capture/capturefile.h"
#include "capture/recorder.h"
#include "link/frame.h"
#include "settings/settings.h"
#include "tools/boxsim/rawpty.h"
#include "ui_mainwindow.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QSerialPort>
#include <QStandardPaths>
#include <QTextBrowser>
#include <QTextDocument>
#include <QTimer>
#include <QWindow>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using namespace Bench;

constexpr int burstFrames = 6;
constexpr int burstsPerSecond = 96; // 6 x 96 = 576 frames/s, the link's rate
constexpr qsizetype writeChunk = 4096;
constexpr qint64 setupExchangesAtFullSize = 100000;
constexpr qint64 fullSizeFrames = 1000000;
constexpr qint64 nsPerSecond = 1000000000;
constexpr qint64 stallLimitNs = 50000000;

// Targets.
constexpr double cpuLimitPercent = 10.0;
constexpr double cpuRatioLimit = 1.2;
constexpr double rssLimitMB = 350.0;
constexpr double rssGrowthLimitPercent = 5.0;

double processCpuSeconds()
{
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + double(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

qint64 monotonicNs()
{
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return qint64(t.tv_sec) * nsPerSecond + t.tv_nsec;
}

void sleepUntil(qint64 ns)
{
    timespec t{};
    t.tv_sec = time_t(ns / nsPerSecond);
    t.tv_nsec = long(ns % nsPerSecond);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &t, nullptr) == EINTR) {
    }
}

double megabytes(long bytes)
{
    return double(bytes) / 1e6;
}

qint64 envCount(const char *name, qint64 fallback)
{
    bool ok = false;
    const qint64 value = qEnvironmentVariable(name).toLongLong(&ok);
    return ok && value > 0 ? value : fallback;
}

// An idling machine's MDB traffic, one bus-data frame at a time, the box's
// ticks always going up.
class Traffic
{
public:
    // A coin changer polled: ACKs, now and then a coin deposited or a tube
    // status, so that the lines are not all alike.
    QByteArray nextIdle()
    {
        if (at == round.size())
            nextRound();
        return round.at(at++);
    }

    // The VMC's coin SETUP and the changer's reply, in turn.
    QByteArray nextSetup()
    {
        static const QByteArray setupReply = QByteArray::fromHex("0218400A0203000102050A143264C80000000000000000");
        const bool reply = replyDue;
        replyDue = !replyDue;
        return reply ? peripheralReply(setupReply) : command(0x09);
    }

private:
    QList<QByteArray> round;
    qsizetype at = 0;
    quint32 tick = 1000;
    quint32 rounds = 0;
    bool replyDue = false;

    void nextRound()
    {
        round.clear();
        at = 0;
        tick += 150; // the VMC's poll interval
        const quint32 n = rounds++;
        if (n % 128 == 64) {
            QByteArray tubes(18, '\0');
            for (int i = 2; i < tubes.size(); ++i)
                tubes[i] = char((n / 128 + quint32(i)) % 60);
            round << command(0x0A) << peripheralReply(tubes) << vmcAck();
        } else if (n % 16 == 5) {
            QByteArray coin(2, '\0');
            coin[0] = char(0x50 | (n / 16 % 4)); // routed to a tube
            coin[1] = char(n / 64 % 40);         // coins now in that tube
            round << command(0x0B) << peripheralReply(coin) << vmcAck();
        } else {
            round << command(0x0B) << peripheralAck();
        }
    }

    QByteArray frame(int direction, const QByteArray &data, qsizetype marked)
    {
        return mdbFrame(tick, direction, data, marked);
    }

    static QByteArray withChecksum(QByteArray data)
    {
        unsigned char sum = 0;
        for (char c : data)
            sum = static_cast<unsigned char>(sum + static_cast<unsigned char>(c));
        data.append(char(sum));
        return data;
    }

    QByteArray command(unsigned char code) { return frame(0, withChecksum(QByteArray(1, char(code))), 0); }
    QByteArray peripheralReply(const QByteArray &data)
    {
        const QByteArray bytes = withChecksum(data);
        return frame(1, bytes, bytes.size() - 1);
    }
    QByteArray peripheralAck() { return frame(1, QByteArray(1, '\0'), 0); }
    QByteArray vmcAck() { return frame(0, QByteArray(1, '\0'), -1); }
};

// ---- the feeding thread -------------------------------------------------------

// What the window sends the box (its mode set) is read and dropped, so that
// direction never fills up.
void drain(int master)
{
    char sink[256];
    while (::read(master, sink, sizeof sink) > 0) {
    }
}

// All of bytes into the non-blocking master. A full pty says EAGAIN: then it
// waits until the window has read some, so nothing is ever dropped.
bool writeAll(int master, const QByteArray &bytes, qint64 &waits)
{
    const char *p = bytes.constData();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t n = ::write(master, p, size_t(left));
        if (n > 0) {
            p += n;
            left -= n;
            continue;
        }
        if (n < 0 && errno != EAGAIN && errno != EINTR)
            return false;
        ++waits;
        drain(master);
        pollfd out{master, POLLOUT, 0};
        ::poll(&out, 1, 20);
    }
    return true;
}

struct FeedResult
{
    qint64 frames = 0;
    qint64 waits = 0;   // writes that found the pty full
    int lateBursts = 0; // paced bursts written more than a period late
    double wallSeconds = 0;
    double processCpu = 0; // every thread, over the same stretch
    double feederCpu = 0;  // this thread's own
    bool ok = true;        // false when a write failed
};

// Bursts of six frames on a fixed grid of deadlines, so that a late burst
// does not push the later ones back.
FeedResult feedPaced(int master, Traffic &traffic, qint64 seconds)
{
    FeedResult r;
    drain(master);
    const qint64 bursts = seconds * burstsPerSecond;
    const auto due = [](qint64 start, qint64 k) { return start + k * nsPerSecond / burstsPerSecond; };
    QByteArray burst;
    const double cpuStart = processCpuSeconds();
    const double ownStart = threadCpuSeconds();
    const qint64 start = monotonicNs();
    for (qint64 k = 0; k < bursts; ++k) {
        sleepUntil(due(start, k));
        if (monotonicNs() > due(start, k + 1))
            ++r.lateBursts;
        burst.clear();
        for (int i = 0; i < burstFrames; ++i)
            burst += traffic.nextIdle();
        if (!writeAll(master, burst, r.waits)) {
            r.ok = false;
            break;
        }
        r.frames += burstFrames;
    }
    sleepUntil(due(start, bursts));
    r.wallSeconds = double(monotonicNs() - start) / 1e9;
    r.feederCpu = threadCpuSeconds() - ownStart;
    r.processCpu = processCpuSeconds() - cpuStart;
    return r;
}

// As fast as the window takes them: writes of about 4 KiB, each waiting
// while the pty is full. next gives the frames, one a call.
template <typename Next>
FeedResult feedFast(int master, Next next, qint64 frames)
{
    FeedResult r;
    drain(master);
    QByteArray chunk;
    chunk.reserve(writeChunk + 256);
    const double cpuStart = processCpuSeconds();
    const double ownStart = threadCpuSeconds();
    const qint64 start = monotonicNs();
    for (qint64 i = 0; i < frames; ++i) {
        chunk += next();
        if (chunk.size() < writeChunk && i + 1 < frames)
            continue;
        if (!writeAll(master, chunk, r.waits)) {
            r.ok = false;
            break;
        }
        r.frames = i + 1;
        chunk.clear();
    }
    r.wallSeconds = double(monotonicNs() - start) / 1e9;
    r.feederCpu = threadCpuSeconds() - ownStart;
    r.processCpu = processCpuSeconds() - cpuStart;
    return r;
}

// ---- the GUI thread -----------------------------------------------------------

// Runs the event loop while feed runs on a thread of its own.
template <typename Feed>
FeedResult whileFeeding(Feed feed)
{
    FeedResult result;
    QEventLoop loop;
    std::thread feeder([&] {
        result = feed();
        QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
    });
    loop.exec();
    feeder.join();
    return result;
}

// Runs the event loop until the window has read all that was written: the
// slave's input queue and the port's buffer both empty for 200 ms in a row.
// Returns when they were first seen empty, so the quiet stretch is not
// counted as the window's work.
qint64 catchUp(const QSerialPort *port, int slave)
{
    constexpr qint64 quietNs = 200000000;
    qint64 emptySince = 0;
    QEventLoop loop;
    QTimer check;
    QObject::connect(&check, &QTimer::timeout, &loop, [&] {
        int queued = 0;
        if (ioctl(slave, FIONREAD, &queued) != 0)
            queued = 0;
        const qint64 now = monotonicNs();
        if (queued > 0 || port->bytesAvailable() > 0)
            emptySince = 0;
        else if (emptySince == 0)
            emptySince = now;
        else if (now - emptySince >= quietNs)
            loop.quit();
    });
    check.start(2);
    loop.exec();
    return emptySince;
}

// Runs the event loop for a while, for the window to draw and settle.
void idle(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

struct ViewReading
{
    long rss = 0;
    int lines = 0;
};

ViewReading readView(const QTextBrowser *view)
{
    return {rssBytes(), view->document()->blockCount()};
}

double cpuPercent(const FeedResult &r)
{
    return 100.0 * (r.processCpu - r.feederCpu) / r.wallSeconds;
}

void printPaced(const char *what, const FeedResult &r, const ViewReading &v)
{
    std::printf("%s\n", what);
    std::printf("  CPU %6.2f %% of one core   RSS %7.1f MB   view %d lines\n", cpuPercent(r), megabytes(v.rss),
                v.lines);
    std::printf("  (%lld frames in %.1f s = %.1f frames/s, %d bursts late, %lld waits on a full pty;"
                " process %.2f s CPU, feeder %.2f s)\n",
                static_cast<long long>(r.frames), r.wallSeconds, double(r.frames) / r.wallSeconds, r.lateBursts,
                static_cast<long long>(r.waits), r.processCpu, r.feederCpu);
}

struct Captured
{
    qint64 frames = 0;
    int files = 0;
    int damaged = 0; // files that did not read back whole
};

// Frames in all capture files of the folder.
Captured countCaptured(const QString &folder)
{
    Captured c;
    CaptureFile::Sink sink;
    sink.onFrame = [&c](qint64, const QByteArray &) { ++c.frames; };
    const QFileInfoList files = QDir(folder).entryInfoList({QStringLiteral("capture_*.pcapng")}, QDir::Files);
    for (const QFileInfo &file : files) {
        ++c.files;
        if (CaptureFile::read(file.filePath(), sink).status != CaptureFile::Status::Ok)
            ++c.damaged;
    }
    return c;
}

// The largest gap between ticks of a 1 ms timer on the GUI thread: how long
// the window was deaf and blind at worst. The GUI thread's own CPU time in
// that gap tells the program's work from a machine busy elsewhere.
class StallMeter
{
public:
    StallMeter()
    {
        timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&timer, &QTimer::timeout, &timer, [this] {
            const qint64 now = monotonicNs();
            const double cpu = threadCpuSeconds();
            const qint64 gap = now - last;
            if (gap > longest) {
                longest = gap;
                longestCpu = cpu - lastCpu;
            }
            if (gap > stallLimitNs)
                ++overLimit;
            last = now;
            lastCpu = cpu;
        });
    }
    void start()
    {
        last = monotonicNs();
        lastCpu = threadCpuSeconds();
        timer.start(1);
    }
    void stop() { timer.stop(); }

    qint64 longest = 0;
    double longestCpu = 0; // the GUI thread's CPU seconds in the longest gap
    int overLimit = 0;

private:
    QTimer timer;
    qint64 last = 0;
    double lastCpu = 0;
};

// The window's longest piece of work: every event the GUI thread handles, each
// read of the port with the lines it appends among them, timed from start to
// end. The stall meter's timer cannot show this under a flood, as Qt's glib
// event loop runs a timer that has fired again only once the loop is idle,
// so its gaps span every read until then; input from the user is handled
// between any two events.
class MeteredApplication : public QApplication
{
public:
    using QApplication::QApplication;
    bool notify(QObject *receiver, QEvent *event) override
    {
        if (!metering || depth > 0)
            return QApplication::notify(receiver, event);
        ++depth;
        const qint64 start = monotonicNs();
        const bool done = QApplication::notify(receiver, event);
        const qint64 took = monotonicNs() - start;
        --depth;
        if (took > longestEvent) {
            longestEvent = took;
            longestType = int(event->type());
        }
        if (took > stallLimitNs)
            ++eventsOverLimit;
        return done;
    }
    void meter(bool on)
    {
        metering = on;
        longestEvent = 0;
        eventsOverLimit = 0;
    }

    qint64 longestEvent = 0;
    int longestType = 0;
    int eventsOverLimit = 0;

private:
    bool metering = false;
    int depth = 0;
};

void printTarget(const char *what, const QByteArray &figure, const char *limit, bool ok)
{
    std::printf("  %-40s %-22s target %-18s %s\n", what, figure.constData(), limit, ok ? "ok" : "MISSED");
}

// The window must really be shown: on the X display when there is one, else
// on one that xvfb-run starts for this bench run again. False: skipped.
bool haveDisplay(int argc, char **argv)
{
    if (!qEnvironmentVariableIsEmpty("DISPLAY")) {
        // scripts/bench asks for offscreen; this bench needs the real thing.
        qputenv("QT_QPA_PLATFORM", "xcb");
        return true;
    }
    if (qEnvironmentVariableIsSet("VENDSCOPE_SOAK_XVFB")) {
        std::printf("soak_bench: skipped, xvfb-run gave no X display\n");
        return false;
    }
    const QString xvfbRun = QStandardPaths::findExecutable(QStringLiteral("xvfb-run"));
    if (xvfbRun.isEmpty()) {
        std::printf("soak_bench: skipped, no X display and no xvfb-run\n");
        return false;
    }
    qputenv("VENDSCOPE_SOAK_XVFB", "1");
    std::vector<QByteArray> words = {xvfbRun.toLocal8Bit(), "-a", "-s", "-screen 0 1280x1024x24"};
    for (int i = 0; i < argc; ++i)
        words.emplace_back(argv[i]);
    std::vector<char *> args;
    args.reserve(words.size() + 1);
    for (QByteArray &word : words)
        args.push_back(word.data());
    args.push_back(nullptr);
    std::fflush(stdout);
    execv(args.front(), args.data());
    std::printf("soak_bench: skipped, cannot run xvfb-run: %s\n", std::strerror(errno));
    return false;
}

} // namespace

int main(int argc, char **argv)
{
    if (!haveDisplay(argc, argv))
        return 0;
    const qint64 frames = envCount("VENDSCOPE_SOAK_FRAMES", fullSizeFrames);
    const qint64 seconds = envCount("VENDSCOPE_SOAK_SECONDS", 30);
    const qint64 setupExchanges = qEnvironmentVariableIsSet("VENDSCOPE_SOAK_SETUP")
                                      ? std::max<qint64>(1, qEnvironmentVariableIntValue("VENDSCOPE_SOAK_SETUP"))
                                      : std::max<qint64>(1, setupExchangesAtFullSize * frames / fullSizeFrames);

    MeteredApplication app(argc, argv);
    quietWindowSettings();
    const QString captures = QCoreApplication::applicationDirPath() + "/captures";
    QDir(captures).removeRecursively();

    int master = -1;
    int slave = -1;
    QString slavePath;
    if (!openRawPty(master, slave, slavePath)) {
        std::printf("soak_bench: cannot open a pseudo-terminal\n");
        return 1;
    }

    MainWindow w;
    w.show();
    const qint64 exposeBy = monotonicNs() + 5 * nsPerSecond;
    while (!(w.windowHandle() && w.windowHandle()->isExposed()) && monotonicNs() < exposeBy)
        idle(10);
    w.settings->addPortPath(slavePath);
    w.portToggle();
    QSerialPort *port = w.settings->serialPort;
    if (!port->isOpen() || w.settings->comboBoxInterpret->currentIndex() != 0) {
        std::printf("soak_bench: the window did not open %s in MDB mode\n", qPrintable(slavePath));
        return 1;
    }
    QTextBrowser *view = w.ui->textBrowserParsed;
    idle(1000);

    std::printf("soak: the real window on X display %s (Qt platform %s), %s, view %dx%d px\n",
                qgetenv("DISPLAY").constData(), qPrintable(QGuiApplication::platformName()),
                w.windowHandle() && w.windowHandle()->isExposed() ? "shown and exposed" : "NOT exposed",
                view->width(), view->height());
    std::printf("fed by a thread of this process through a pty; %lld frames, %lld s at %.0f frames/s"
                " (%d a burst, %d bursts/s)\n",
                static_cast<long long>(frames), static_cast<long long>(seconds), linkFramesPerSecond, burstFrames,
                burstsPerSecond);
    std::printf("CPU = process CPU (getrusage, all threads) minus the feeding thread's own"
                " (CLOCK_THREAD_CPUTIME_ID); the X server's is not counted\n\n");
    std::fflush(stdout);

    Traffic traffic;
    const auto idleFrame = [&traffic] { return traffic.nextIdle(); };
    const auto setupFrame = [&traffic] { return traffic.nextSetup(); };
    qint64 sent = 0;

    // 1. The link's rate into an empty view.
    const FeedResult empty = whileFeeding([&] { return feedPaced(master, traffic, seconds); });
    sent += empty.frames;
    catchUp(port, slave);
    const ViewReading emptyView = readView(view);
    printPaced("empty view, at the link rate:", empty, emptyView);
    std::fflush(stdout);

    // 2. The million, as fast as the window takes them, read halfway and at the end.
    const qint64 half = frames / 2;
    const double bulkCpuStart = processCpuSeconds();
    const qint64 bulkStart = monotonicNs();
    const FeedResult first = whileFeeding([&] { return feedFast(master, idleFrame, half); });
    const qint64 firstCaughtUp = catchUp(port, slave);
    const ViewReading atHalf = readView(view);
    std::printf("\nfeeding %lld frames as fast as the window takes them:\n", static_cast<long long>(frames));
    std::printf("  at %8lld fed: RSS %7.1f MB   view %d lines\n", static_cast<long long>(first.frames),
                megabytes(atHalf.rss), atHalf.lines);
    std::fflush(stdout);
    const qint64 resumed = monotonicNs();
    const FeedResult second = whileFeeding([&] { return feedFast(master, idleFrame, frames - half); });
    const qint64 secondCaughtUp = catchUp(port, slave);
    const ViewReading atFull = readView(view);
    const double bulkProgramCpu = processCpuSeconds() - bulkCpuStart - first.feederCpu - second.feederCpu;
    const double bulkSeconds = double((firstCaughtUp - bulkStart) + (secondCaughtUp - resumed)) / 1e9;
    const qint64 bulkFrames = first.frames + second.frames;
    sent += bulkFrames;
    std::printf("  at %8lld fed: RSS %7.1f MB   view %d lines\n", static_cast<long long>(bulkFrames),
                megabytes(atFull.rss), atFull.lines);
    std::printf("  took %.1f s until the window had them all: %.0f frames/s = %.1f x the link rate;"
                " program CPU %.1f us a frame, %lld waits on a full pty\n",
                bulkSeconds, double(bulkFrames) / bulkSeconds, double(bulkFrames) / bulkSeconds / linkFramesPerSecond,
                1e6 * bulkProgramCpu / double(bulkFrames), static_cast<long long>(first.waits + second.waits));
    std::fflush(stdout);

    // 3. The link's rate again, into the full view. No stall meter here: its
    // ticks would be counted as the program's CPU.
    const FeedResult full = whileFeeding([&] { return feedPaced(master, traffic, seconds); });
    sent += full.frames;
    catchUp(port, slave);
    const ViewReading fullView = readView(view);
    std::printf("\n");
    printPaced("full view, at the link rate:", full, fullView);
    const double cpuRatio = cpuPercent(full) / cpuPercent(empty);
    std::printf("  against the empty view: %.2f x the CPU\n", cpuRatio);

    // 3b. On at the link rate with the stall meter, until the view has been
    // trimmed once (at most a minute).
    const qint64 toBound = std::max(0, w.viewLineLimit() - fullView.lines);
    const qint64 untilTrim = toBound / qint64(linkFramesPerSecond) + 3;
    const qint64 stallSeconds = untilTrim <= 60 ? untilTrim : seconds; // a short run may not reach the bound
    StallMeter pacedStalls;
    pacedStalls.start();
    const FeedResult trimmed = whileFeeding([&] { return feedPaced(master, traffic, stallSeconds); });
    sent += trimmed.frames;
    catchUp(port, slave);
    pacedStalls.stop();
    const ViewReading afterTrim = readView(view);
    std::printf("  longest event-loop stall %.1f ms in %lld s more%s\n", double(pacedStalls.longest) / 1e6,
                static_cast<long long>(stallSeconds),
                afterTrim.lines < fullView.lines + int(trimmed.frames) ? " (a trim of the view included)" : "");

    // 4. Every frame sent is in the capture.
    w.recorder->flush();
    const Captured run1 = countCaptured(captures);
    std::printf("\ncapture: %lld frames sent, %lld in %d capture file(s) in %s%s\n", static_cast<long long>(sent),
                static_cast<long long>(run1.frames), run1.files, qPrintable(captures),
                run1.damaged ? " (some did not read back whole)" : "");
    std::fflush(stdout);

    // 5. SETUP replies, several lines each, as fast as the window takes them,
    // after Clear; the event loop's longest stall meanwhile.
    w.ui->actionClear->trigger();
    idle(500);
    const qint64 setupFrames = 2 * setupExchanges;
    StallMeter stalls;
    const qint64 setupStart = monotonicNs();
    stalls.start();
    app.meter(true);
    const FeedResult setup = whileFeeding([&] { return feedFast(master, setupFrame, setupFrames); });
    const qint64 setupCaughtUp = catchUp(port, slave);
    stalls.stop();
    const qint64 longestEvent = app.longestEvent;
    const int eventsOverLimit = app.eventsOverLimit;
    app.meter(false);
    sent += setup.frames;
    const double setupSeconds = double(setupCaughtUp - setupStart) / 1e9;
    const int setupLines = view->document()->blockCount();
    const double setupHeight = view->document()->size().height();
    const long setupRss = rssBytes();
    w.recorder->flush();
    const Captured all = countCaptured(captures);
    std::printf("\nSETUP run after Clear: %lld coin SETUP exchanges (%lld frames) as fast as the window takes them\n",
                static_cast<long long>(setupExchanges), static_cast<long long>(setup.frames));
    std::printf("  longest event on the GUI thread %.1f ms (type %d), %d over %lld ms\n", double(longestEvent) / 1e6,
                app.longestType, eventsOverLimit, static_cast<long long>(stallLimitNs / 1000000));
    std::printf("  longest wait of the 1 ms timer %.1f ms (%.1f ms of it the GUI thread's CPU), %d over %lld ms\n",
                double(stalls.longest) / 1e6, 1e3 * stalls.longestCpu, stalls.overLimit,
                static_cast<long long>(stallLimitNs / 1000000));
    std::printf("  took %.1f s (%.0f frames/s); view %d lines, document %.0f px high; RSS %.1f MB\n", setupSeconds,
                double(setup.frames) / setupSeconds, setupLines, setupHeight, megabytes(setupRss));
    std::printf("  capture, both runs: %lld frames sent, %lld in %d capture file(s)%s\n",
                static_cast<long long>(sent), static_cast<long long>(all.frames), all.files,
                all.damaged ? " (some did not read back whole)" : "");

    // Against the targets.
    const long rssMost = std::max({atHalf.rss, atFull.rss, fullView.rss, afterTrim.rss});
    const double growth = 100.0 * double(atFull.rss - atHalf.rss) / double(atHalf.rss);
    const qint64 sentRun1 = empty.frames + bulkFrames + full.frames + trimmed.frames;
    const bool writesOk = empty.ok && first.ok && second.ok && full.ok && trimmed.ok && setup.ok;
    std::printf("\ntargets:\n");
    printTarget("CPU at the link rate after the frames", QByteArray::number(cpuPercent(full), 'f', 2) + " % of a core",
                "<= 10 %", cpuPercent(full) <= cpuLimitPercent);
    printTarget("  against the empty view", QByteArray::number(cpuRatio, 'f', 2) + " x", "<= 1.2 x",
                cpuRatio <= cpuRatioLimit);
    printTarget("RSS, largest read in the first run", QByteArray::number(megabytes(rssMost), 'f', 1) + " MB",
                "<= 350 MB", megabytes(rssMost) <= rssLimitMB);
    printTarget("RSS growth from half to all frames", QByteArray::number(growth, 'f', 2) + " %", "< 5 %",
                growth < rssGrowthLimitPercent);
    printTarget("frames lost, first run", QByteArray::number(sentRun1 - run1.frames), "0",
                writesOk && run1.frames == sentRun1 && run1.damaged == 0);
    printTarget("frames lost, both runs", QByteArray::number(sent - all.frames), "0",
                writesOk && all.frames == sent && all.damaged == 0);
    printTarget("longest read with its appends, SETUP run", QByteArray::number(double(longestEvent) / 1e6, 'f', 1) + " ms",
                "<= 50 ms", longestEvent <= stallLimitNs);

    w.portToggle();
    ::close(master);
    ::close(slave);
    return 0;
}
