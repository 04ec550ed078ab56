// How long a 256 KiB firmware upgrade takes through the main window over a
// pseudo-terminal, against the time its bytes need on the box's 115200 baud
// line. The boot loader runs on a thread of its own, so the GUI thread's CPU
// time is the program's own share.
#include "app/mainwindow.h"
#include "link/frame.h"
#include "settings/settings.h"
#include "tools/boxsim/bootloader.h"
#include "tools/boxsim/rawpty.h"
#include "update/fwupgrade.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSettings>
#include <QSocketNotifier>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <poll.h>
#include <unistd.h>

namespace {

constexpr int imageSize = 256 * 1024;
constexpr int runs = 5;
constexpr double lineBytesPerSecond = 115200.0 / 10; // 8N1: ten bits a byte

qint64 nowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

qint64 threadCpuNs()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return qint64(t.tv_sec) * 1000000000 + t.tv_nsec;
}

// The box on the master side of the pseudo-terminal, on its own thread.
class BoxSide : public QObject
{
    Q_OBJECT
public:
    explicit BoxSide(int master) : master(master) {}

    qint64 startNs = 0;    // the boot loader's first byte
    qint64 cpuNs = 0;      // this thread's CPU from boot command to finish
    qint64 toBox = 0;      // bytes the program sent while booting
    qint64 fromBox = 0;    // bytes the boot loader sent
    bool ok = false;

public slots:
    void begin()
    {
        auto *notifier = new QSocketNotifier(master, QSocketNotifier::Read, this);
        connect(notifier, &QSocketNotifier::activated, this, &BoxSide::readable);
    }
    void requestFirmware() { write(BoxFrame::build(BoxFrame::KindFirmwareRequest)); }

signals:
    void modeSetSeen();
    void done();

private:
    void readable()
    {
        char buf[8192];
        for (;;) {
            const ssize_t n = ::read(master, buf, sizeof buf);
            if (n <= 0)
                return;
            const QByteArray bytes(buf, int(n));
            if (loader) {
                toBox += n;
                loader->feed(bytes);
                continue;
            }
            rx += bytes;
            const int boot = int(rx.indexOf(QByteArray::fromHex("A55A0008060E0D0A")));
            if (boot >= 0) {
                enterBootLoader(rx.mid(boot + 8));
                rx.clear();
            } else if (rx.contains(QByteArray::fromHex("A55A000A0100000B0D0A"))) {
                rx.clear();
                emit modeSetSeen();
            }
        }
    }
    void enterBootLoader(const QByteArray &rest)
    {
        cpuStart = threadCpuNs();
        startNs = 0;
        toBox = rest.size();
        fromBox = 0;
        BootLoader::Options options;
        options.imageOut = QCoreApplication::applicationDirPath() + "/image.out";
        loader = new BootLoader(options, this);
        connect(loader, &BootLoader::send, this, [this](const QByteArray &b) {
            if (startNs == 0)
                startNs = nowNs();
            fromBox += b.size();
            write(b);
        });
        connect(loader, &BootLoader::finished, this, [this](bool result) {
            ok = result;
            cpuNs = threadCpuNs() - cpuStart;
            loader->deleteLater();
            loader = nullptr;
            emit done();
        });
        loader->start();
        loader->feed(rest);
    }
    void write(const QByteArray &bytes)
    {
        const char *p = bytes.constData();
        qsizetype left = bytes.size();
        while (left > 0) {
            const ssize_t n = ::write(master, p, size_t(left));
            if (n < 0 && errno == EAGAIN) {
                pollfd f{master, POLLOUT, 0};
                ::poll(&f, 1, 100);
                continue;
            }
            if (n < 0)
                return;
            p += n;
            left -= n;
        }
    }

    int master;
    QByteArray rx;
    BootLoader *loader = nullptr;
    qint64 cpuStart = 0;
};

bool spin(const std::function<bool()> &until, int timeoutMs)
{
    // Sleeps between events, so the GUI thread's CPU time is its own work.
    QTimer wake;
    wake.start(50);
    QElapsedTimer t;
    t.start();
    while (!until()) {
        if (t.elapsed() > timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

void quiet(QtMsgType type, const QMessageLogContext &, const QString &msg)
{
    if (type >= QtWarningMsg)
        fprintf(stderr, "%s\n", qPrintable(msg));
}

void writeFiles()
{
    const QString here = QCoreApplication::applicationDirPath();
    QFile::remove(here + "/settings.ini");
    {
        QSettings ini(here + "/settings.ini", QSettings::IniFormat);
        ini.setValue("Update", false);
        ini.setValue("updateServer", "http://127.0.0.1:9");
    }
    const QString dir = here + "/firmware";
    QDir(dir).removeRecursively();
    QDir().mkpath(dir);
    const quint16 total = quint16((imageSize + FWUpgrade::chunkSize - 1) / FWUpgrade::chunkSize);
    QByteArray header("UP\0\0", 4);
    for (quint32 v : {quint32(FWUpgrade::chunkSize << 16 | total), quint32(imageSize)})
        for (int shift = 24; shift >= 0; shift -= 8)
            header.append(char((v >> shift) & 0xFF));
    QFile ini(dir + "/INI_bench.bin");
    QFile dat(dir + "/DAT_bench.bin");
    QByteArray image(imageSize, 0);
    for (int i = 0; i < imageSize; ++i)
        image[i] = char((i * 131 + i / 977) & 0xFF);
    if (!ini.open(QIODevice::WriteOnly) || !dat.open(QIODevice::WriteOnly)
        || ini.write(header + QByteArray("bench", 6)) < 0 || dat.write(image) != image.size())
        qFatal("cannot write the firmware files");
}

} // namespace

int main(int argc, char *argv[])
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    qInstallMessageHandler(quiet);
    writeFiles();

    int master = -1;
    int slave = -1;
    QString slavePath;
    if (!openRawPty(master, slave, slavePath))
        qFatal("openpty failed");

    QThread boxThread;
    auto *box = new BoxSide(master);
    box->moveToThread(&boxThread);
    QObject::connect(&boxThread, &QThread::finished, box, &QObject::deleteLater);
    boxThread.start();
    QMetaObject::invokeMethod(box, &BoxSide::begin, Qt::BlockingQueuedConnection);

    int modeSets = 0;
    int boxDone = 0;
    QObject::connect(box, &BoxSide::modeSetSeen, &app, [&] { ++modeSets; });
    QObject::connect(box, &BoxSide::done, &app, [&] { ++boxDone; });

    std::vector<double> wall, programCpu, loaderCpu;
    qint64 toBox = 0;
    qint64 fromBox = 0;
    {
        MainWindow w;
        qint64 endNs = 0;
        qint64 cpuEnd = 0;
        QObject::connect(w.fwUpgrade, &FWUpgrade::upgradeEnd, &app, [&] {
            endNs = nowNs();
            cpuEnd = threadCpuNs();
        });
        w.settings->addPortPath(slavePath);
        w.portToggle();
        if (!spin([&] { return modeSets == 1; }, 5000))
            qFatal("the box never got modeSet");

        for (int run = 0; run < runs; ++run) {
            endNs = 0;
            const qint64 cpuStart = threadCpuNs();
            QMetaObject::invokeMethod(box, &BoxSide::requestFirmware, Qt::QueuedConnection);
            if (!spin([&] { return endNs != 0 && boxDone == run + 1; }, 120000))
                qFatal("run %d did not end", run + 1);
            wall.push_back((endNs - box->startNs) / 1e6);
            programCpu.push_back((cpuEnd - cpuStart) / 1e6);
            loaderCpu.push_back(box->cpuNs / 1e6);
            toBox = box->toBox;
            fromBox = box->fromBox;
            if (!box->ok)
                qFatal("run %d: the boot loader failed", run + 1);
            // Back to monitoring before the next request.
            if (!spin([&] { return modeSets == run + 2; }, 5000))
                qFatal("run %d: no modeSet after the upgrade", run + 1);
        }
    }
    boxThread.quit();
    boxThread.wait();
    ::close(master);
    ::close(slave);

    QFile image(QCoreApplication::applicationDirPath() + "/image.out");
    QFile dat(QCoreApplication::applicationDirPath() + "/firmware/DAT_bench.bin");
    if (!image.open(QIODevice::ReadOnly) || !dat.open(QIODevice::ReadOnly) || image.readAll() != dat.readAll())
        qFatal("the received image differs from the DAT file");

    const int packets = (imageSize + FWUpgrade::chunkSize - 1) / FWUpgrade::chunkSize;
    const double lineToBox = toBox / lineBytesPerSecond * 1000;
    const double lineBoth = (toBox + fromBox) / lineBytesPerSecond * 1000;
    printf("firmware upgrade of %d bytes in %d DAT packets of %d, %d runs\n", imageSize, packets, FWUpgrade::chunkSize, runs);
    printf("bytes on the line: program to box %lld, box to program %lld\n", static_cast<long long>(toBox),
           static_cast<long long>(fromBox));
    printf("time at 115200 baud 8N1: program to box %.0f ms, both directions in turn %.0f ms\n", lineToBox, lineBoth);
    printf("run  wall ms  program CPU ms  boot loader CPU ms\n");
    for (int i = 0; i < runs; ++i)
        printf("%3d  %7.1f  %14.1f  %18.1f\n", i + 1, wall[size_t(i)], programCpu[size_t(i)], loaderCpu[size_t(i)]);
    auto median = [](std::vector<double> v) {
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    };
    const double w = median(wall);
    const double p = median(programCpu);
    printf("median wall %.1f ms over the pseudo-terminal = %.1f%% of the 115200 baud line time\n", w, 100 * w / lineBoth);
    printf("median program CPU %.1f ms (%.1f us a packet) = %.1f%% of the wall time, %.2f%% of the line time\n", p,
           1000 * p / packets, 100 * p / w, 100 * p / lineBoth);
    return 0;
}

#include "upgrade_bench.moc"
