// The whole firmware upgrade through the main window, a boot loader on the far side of a pseudo-terminal.
#include "testsupport.h"

#include "app/mainwindow.h"
#include "link/frame.h"
#include "tools/boxsim/bootloader.h"
#include "ui_dialogfirmware.h"
#include "update/fwupgrade.h"

static const QByteArray modeSetMdb = hexBytes("A55A000A0100000B0D0A");
static const QByteArray heartFrame = hexBytes("A55A0008050D0D0A");
static const QByteArray statusFrame = hexBytes("A55A000B07626F78790D0A"); // answered with a heartbeat, no boot token

static QString firmwareDir() { return QCoreApplication::applicationDirPath() + "/firmware"; }

static QByteArray readFile(const QString &name)
{
    QFile f(firmwareDir() + "/" + name);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("(unreadable)");
}

class TestFwUpgradeE2e : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        writeSettingsIni();
        QDir(firmwareDir()).removeRecursively();
        QVERIFY(QDir().mkpath(firmwareDir()));
        QFile ini(firmwareDir() + "/INI_2.0.1.bin"), dat(firmwareDir() + "/DAT_2.0.1.bin");
        QVERIFY(ini.open(QIODevice::WriteOnly) && dat.open(QIODevice::WriteOnly));
        // UP, chunk 768, 4 packets, image size 3000 (for the boot loader only), version 2.0.1
        ini.write(hexBytes("555000000300000400000BB8") + QByteArray("2.0.1", 6));
        for (int i = 0; i < 3000; ++i) // three full packets and one of 696; a misplaced cut shows
            dat.putChar(char(i % 251));
    }
    void cleanupTestCase() { removeSettingsIni(); } // the firmware folder is this test's own

    void upgrade_data()
    {
        QTest::addColumn<int>("silentAt"); // at DAT packet n; -1 never
        QTest::addColumn<int>("rejectAt");
        QTest::addColumn<QString>("label");
        QTest::addColumn<int>("imageBytes"); // received by the boot loader
        QTest::newRow("whole image flashed, then back to monitoring") << -1 << -1 << "Upgrade end" << 3000;
        QTest::newRow("rejected packet stops the upgrade") << -1 << 2 << "Upgrade was rejected" << 768;
        QTest::newRow("silent boot loader: resends, then reset") << 3 << -1 << "Response Timeout 3 sequence 3" << 1536;
    }
    void upgrade()
    {
        QFETCH(int, silentAt);
        QFETCH(int, rejectAt);
        QFETCH(QString, label);
        QFETCH(int, imageBytes);
        const bool ok = label == "Upgrade end";
        // Image out (no INI or DAT prefix: the program passes it over), version text, then the faults.
        BootLoader loader(BootLoader::Options{firmwareDir() + "/received.bin", "BOOT_1.0", silentAt, rejectAt});

        // The box: box frames until the boot command, then its boot loader.
        Pty pty;
        QByteArray heard;
        int bootAt = -1;
        QSocketNotifier notifier(pty.masterFd(), QSocketNotifier::Read);
        connect(&notifier, &QSocketNotifier::activated, &loader, [&] {
            const QByteArray bytes = pty.read();
            heard += bytes;
            if (bootAt >= 0)
                loader.feed(bytes); // dropped once it has finished
            else if ((bootAt = int(heard.indexOf(hexBytes("A55A0008060E0D0A")))) >= 0) // the boot command
                loader.start(); // deaf while it restarts
        });
        connect(&loader, &BootLoader::send, &loader, [&](const QByteArray &b) { pty.write(b); });

        MainWindow w;
        w.fwUpgrade->responseTimeoutMs = 300; // the answer timer's path, sooner
        connectTo(w, pty.slavePath());
        pty.write(BoxFrame::build(BoxFrame::KindFirmwareRequest));
        QVERIFY(waitUntil([&] { return w.firmwareUi->labelStatus->text() == label; }, 30000));
        QVERIFY(waitUntil([&] { return readFile("received.bin") == readFile("DAT_2.0.1.bin").left(imageBytes); }, 10000));
        QCOMPARE(w.firmwareUi->progressBar->value() == 100, ok);
        // Failed, the stall timer hands the port back; only an ended upgrade tells the box its mode again.
        QVERIFY(waitUntil([&] { return !w.fwUpgrade->upgradeRunning; }, 10000));
        QCOMPARE(waitUntil([&] { return heard.indexOf(modeSetMdb, bootAt) >= 0; }, ok ? 10000 : 500), ok);
        const int before = int(heard.size());
        pty.write(statusFrame);
        QVERIFY(waitUntil([&] { return heard.indexOf(heartFrame, before) >= 0; }, 10000));
    }

    void simulatorProgram()
    {
#ifndef VS_BOXSIM
        QSKIP("the box simulator is not built");
#else
        QProcess sim;
        sim.start(VS_BOXSIM, {"--request-firmware", "--image-out", firmwareDir() + "/received.bin", "--rate", "20"});
        QVERIFY(sim.waitForStarted(5000) && waitUntil([&] { return sim.canReadLine(); }, 10000));
        MainWindow w;
        connectTo(w, QString::fromLocal8Bit(sim.readLine()).trimmed());
        QVERIFY(waitUntil([&] { return w.firmwareUi->labelStatus->text() == "Upgrade end"; }, 30000));
        QVERIFY(waitUntil([&] { return readFile("received.bin") == readFile("DAT_2.0.1.bin"); }, 10000));
        sim.terminate();
        QVERIFY(sim.waitForFinished(5000));
#endif
    }
};

QTEST_MAIN(TestFwUpgradeE2e)
#include "tst_fwupgrade_e2e.moc"
