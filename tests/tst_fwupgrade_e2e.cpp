// The whole firmware upgrade through the main window, with the box's boot
// loader on the far side of a pseudo-terminal.
#include "testsupport.h"

#include "app/mainwindow.h"
#include "link/frame.h"
#include "tools/boxsim/bootloader.h"
#include "ui_dialogfirmware.h"
#include "update/fwupgrade.h"

#include <QDialog>
#include <QDir>
#include <QProcess>
#include <QSocketNotifier>
#include <QTemporaryDir>

static const QByteArray bootCommand = hexBytes("A55A0008060E0D0A");
static const QByteArray modeSetMdb = hexBytes("A55A000A0100000B0D0A");
static const QByteArray heartFrame = hexBytes("A55A0008050D0D0A");
// A status frame of a kind the program answers with a heartbeat; it holds
// neither of the boot loader's tokens.
static const QByteArray statusFrame = hexBytes("A55A000B07626F78790D0A");

// 3000 bytes: three full packets and one of 696.
static QByteArray image()
{
    QByteArray d(3000, 0);
    for (int i = 0; i < d.size(); ++i)
        d[i] = char(i % 251);
    return d;
}

// Writes the INI/DAT pair where the program looks for it.
static void writeFirmware(bool sizeInIni = true)
{
    const QString dir = QCoreApplication::applicationDirPath() + "/firmware";
    QDir(dir).removeRecursively();
    QDir().mkpath(dir);
    QFile ini(dir + "/INI_2.0.1.bin");
    QFile dat(dir + "/DAT_2.0.1.bin");
    QVERIFY(ini.open(QIODevice::WriteOnly) && dat.open(QIODevice::WriteOnly));
    // UP, chunk 768, 4 packets, image size 3000 (for the boot loader only), version 2.0.1
    ini.write(hexBytes(sizeInIni ? "555000000300000400000BB8" : "555000000300000400000000") + QByteArray("2.0.1", 6));
    dat.write(image());
}

// The box on the master side: box frames until the boot command, then its
// boot loader until that finishes.
class FakeBox : public QObject
{
public:
    FakeBox(Pty &pty, const BootLoader::Options &options)
        : pty(pty), notifier(pty.masterFd(), QSocketNotifier::Read), loader(options)
    {
        connect(&notifier, &QSocketNotifier::activated, this, [this] { readProgram(); });
        connect(&loader, &BootLoader::send, this, [this](const QByteArray &b) { this->pty.write(b); });
        connect(&loader, &BootLoader::finished, this, [this](bool ok) {
            booting = false;
            finished = true;
            result = ok;
        });
    }
    void readProgram()
    {
        const QByteArray bytes = pty.read();
        heard += bytes;
        if (booting) {
            loader.feed(bytes);
        } else if (bootAt < 0 && (bootAt = int(heard.indexOf(bootCommand))) >= 0) {
            booting = true;
            loader.start();
            loader.feed(heard.mid(bootAt + bootCommand.size()));
        }
    }
    // Everything the program sent after the boot command.
    QByteArray afterBoot() const { return bootAt < 0 ? QByteArray() : heard.mid(bootAt + bootCommand.size()); }

    Pty &pty;
    QSocketNotifier notifier;
    BootLoader loader;
    QByteArray heard;
    int bootAt = -1;
    bool booting = false;
    bool finished = false;
    bool result = false;
};

class TestFwUpgradeE2e : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        writeSettingsIni();
        writeFirmware();
    }
    void cleanupTestCase()
    {
        removeSettingsIni();
        QDir(QCoreApplication::applicationDirPath() + "/firmware").removeRecursively();
    }
    void upgrade_data();
    void upgrade();
    void simulatorProgram();
};

void TestFwUpgradeE2e::upgrade_data()
{
    QTest::addColumn<int>("silentAt");
    QTest::addColumn<int>("rejectAt");
    QTest::addColumn<int>("lateMs");
    QTest::addColumn<bool>("sendLog");
    QTest::addColumn<QString>("label");
    QTest::addColumn<int>("imageBytes");
    QTest::addColumn<bool>("sizeInIni");
    QTest::newRow("whole image flashed, then back to monitoring")
        << -1 << -1 << 0 << false << "Upgrade end" << 3000 << true;
    QTest::newRow("without the image size the boot loader finds the last packet by its CRC")
        << -1 << -1 << 0 << false << "Upgrade end" << 3000 << false;
    QTest::newRow("late answers still flash the image") << -1 << -1 << 150 << false << "Upgrade end" << 3000 << true;
    QTest::newRow("rejected packet stops the upgrade")
        << -1 << 2 << 0 << false << "Upgrade was rejected" << 768 << true;
    QTest::newRow("the box's log after a rejection is shown")
        << -1 << 2 << 0 << true << "boot log: 1 of 4 packets taken" << 768 << true;
    QTest::newRow("silent boot loader: three resends, then the receiver takes over")
        << 3 << -1 << 0 << false << "Response Timeout 3 sequence 3" << 1536 << true;
}

void TestFwUpgradeE2e::upgrade()
{
    QFETCH(int, silentAt);
    QFETCH(int, rejectAt);
    QFETCH(int, lateMs);
    QFETCH(bool, sendLog);
    QFETCH(QString, label);
    QFETCH(int, imageBytes);
    QFETCH(bool, sizeInIni);
    writeFirmware(sizeInIni);
    const bool ok = label == "Upgrade end";

    QTemporaryDir out;
    BootLoader::Options options;
    options.imageOut = out.filePath("image.bin");
    options.silentAt = silentAt;
    options.rejectAt = rejectAt;
    options.lateMs = lateMs;
    options.sendLog = sendLog;

    Pty pty;
    MainWindow w;
    w.fwUpgrade->responseTimeoutMs = 300; // the answer timer's path, sooner
    FakeBox box(pty, options);
    connectTo(w, pty.slavePath());
    QVERIFY(waitUntil([&] { return box.heard == modeSetMdb; }));

    pty.write(BoxFrame::build(BoxFrame::KindFirmwareRequest));
    QVERIFY(waitUntil([&] { return box.bootAt >= 0; }));
    QVERIFY(w.firmwareDialog->isVisible());
    QVERIFY(w.fwUpgrade->upgradeRunning);

    QVERIFY(waitUntil([&] { return box.finished; }, 15000));
    QCOMPARE(box.result, ok);
    QVERIFY(waitUntil([&] { return w.firmwareUi->labelStatus->text() == label; }));
    QFile written(options.imageOut);
    QVERIFY(written.open(QIODevice::ReadOnly));
    QCOMPARE(written.readAll(), image().left(imageBytes));

    if (ok) {
        QCOMPARE(w.firmwareUi->progressBar->value(), 100);
        QVERIFY(!w.fwUpgrade->upgradeRunning);
        QVERIFY(waitUntil([&] { return box.afterBoot().contains(modeSetMdb); }));
    } else {
        // The stall timer hands the port back to the box frame receiver; the
        // upgrade did not end, so the box is not told its mode again.
        QVERIFY(waitUntil([&] { return !w.fwUpgrade->upgradeRunning; }, 5000));
        QVERIFY(waitUntil([&] { return w.fwUpgrade->rxState == FWUpgrade::Rx_Token; }, 5000));
        QVERIFY(!w.fwUpgrade->responseTimer.isActive());
        QVERIFY(!box.afterBoot().contains(modeSetMdb));
    }

    // Frames are handled again: a status frame gets its heartbeat.
    const int before = int(box.heard.size());
    QVERIFY(waitUntil([&] {
        if (box.heard.indexOf(heartFrame, before) >= 0)
            return true;
        pty.write(statusFrame);
        QTest::qWait(100);
        return false;
    }, 5000));
    QCOMPARE(w.firmwareUi->labelStatus->text(), label);
}

// The same with the box simulator program on the far side.
void TestFwUpgradeE2e::simulatorProgram()
{
#ifndef VS_BOXSIM
    QSKIP("the box simulator is not built");
#else
    QTemporaryDir out;
    const QString imageOut = out.filePath("image.bin");
    QProcess sim;
    sim.start(VS_BOXSIM, {"--request-firmware", "--image-out", imageOut, "--rate", "20"});
    QVERIFY(sim.waitForStarted(5000));
    QVERIFY(waitUntil([&] { return sim.canReadLine(); }, 10000));
    const QString path = QString::fromLocal8Bit(sim.readLine()).trimmed();
    {
        MainWindow w;
        connectTo(w, path);
        QVERIFY(waitUntil([&] { return w.firmwareUi->labelStatus->text() == "Upgrade end"; }, 15000));
        QCOMPARE(w.firmwareUi->progressBar->value(), 100);
        QVERIFY(waitUntil([&] { return QFile(imageOut).size() == 3000; }));
        QFile written(imageOut);
        QVERIFY(written.open(QIODevice::ReadOnly));
        QCOMPARE(written.readAll(), image());
        // Told its mode again, the box reports once more: the lamp blinks.
        const bool lamp = w.lampOn;
        QVERIFY(waitUntil([&] { return w.lampOn != lamp; }, 5000));
        QVERIFY(waitUntil([&] { return w.lampOn == lamp; }, 5000));
    }
    sim.terminate();
    QVERIFY(sim.waitForFinished(5000));
#endif
}

QTEST_MAIN(TestFwUpgradeE2e)
#include "tst_fwupgrade_e2e.moc"
