// The box link end to end over a pseudo-terminal: receiver, commands, port control.
#include "testsupport.h"

#include "app/mainwindow.h"
#include "link/comm.h"
#include "link/frame.h"
#include "settings/settings.h"
#include "ui_mainwindow.h"
#include "update/fwupgrade.h"

#include <QComboBox>
#include <QSerialPort>
#include <QStatusBar>
#include <QTextBrowser>
#include <QTemporaryDir>
#include <QTimer>

static const QByteArray heartFrame = hexBytes("A55A0008050D0D0A");

class TestBoxLink : public QObject
{
    Q_OBJECT
private slots:
    void init() { writeSettingsIni(); }
    void cleanupTestCase() { removeSettingsIni(); }

    void commandFrames_data();
    void commandFrames();
    void commandsNeedOpenPort();
    void modeSetOnOpen_data();
    void modeSetOnOpen();
    void unhandledKindsGetHeartbeat_data();
    void unhandledKindsGetHeartbeat();
    void fccErrorDropsFrame();
    void noiseBeforeHeader();
    void frameSplitAcrossChunks();
    void twoFramesInOneChunk();
    void shortLengthFieldSkipsHeader();
    void versionReport_data();
    void versionReport();
    void shortBusDataFrameDropped();
    void portToggleClosesAndReopens();
    void openFailureReported();
    void watchdogReopensPort();
    void reconnectTimerSendsModeSet();
    void farSideLossHandledOnce();
    void reconnectFollowsBoxThatComesBack();
};

void TestBoxLink::commandFrames_data()
{
    QTest::addColumn<int>("command");
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("rate");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("modeSet MDB 115200") << 0 << 0 << 5 << hexBytes("A55A000A0100050E0D0A");
    QTest::newRow("modeSet 232 9600") << 0 << 3 << 1 << hexBytes("A55A000A010301090D0A");
    QTest::newRow("modeSet empty rate list goes out as FF") << 0 << 4 << -1 << hexBytes("A55A000A0104FFF00D0A");
    QTest::newRow("connect") << 1 << 0 << 0 << hexBytes("A55A0008030B0D0A");
    QTest::newRow("heart") << 2 << 0 << 0 << hexBytes("A55A0008050D0D0A");
    QTest::newRow("boot") << 3 << 0 << 0 << hexBytes("A55A0008060E0D0A");
}

void TestBoxLink::commandFrames()
{
    QFETCH(int, command);
    QFETCH(int, mode);
    QFETCH(int, rate);
    QFETCH(QByteArray, expected);
    Pty pty;
    MainWindow w;
    connectTo(w, pty.slavePath());
    QVERIFY(w.settings->serialPort->isOpen());
    pty.readAtLeast(10); // the modeSet of the open
    switch (command) {
    case 0: w.comm->modeSet(mode, rate); break;
    case 1: w.comm->connect(); break;
    case 2: w.comm->heart(); break;
    case 3: w.comm->boot(); break;
    }
    QCOMPARE(pty.readAtLeast(expected.size()), expected);

    // Every command passes the receiver's own check when fed back: the
    // unhandled kinds among them are answered with a heartbeat.
    pty.write(expected);
    const QByteArray answer = pty.readAtLeast(command == 0 || command == 3 || command == 2 ? 8 : 1, 1000);
    if (command == 1)
        QVERIFY(answer.isEmpty()); // kind 3 is a version report, not answered
    else
        QCOMPARE(answer, heartFrame);
}

void TestBoxLink::commandsNeedOpenPort()
{
    MessageLog log;
    MainWindow w;
    w.comm->heart();
    QVERIFY(log.contains("Port not open yet!"));
}

void TestBoxLink::modeSetOnOpen_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("baud");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("232 at 9600") << 3 << 1 << hexBytes("A55A000A010301090D0A");
    QTest::newRow("MDB at the first rate") << 0 << 0 << hexBytes("A55A000A0100000B0D0A");
    QTest::newRow("CAN at 500 kbps") << 7 << 2 << hexBytes("A55A000A0107020E0D0A");
    QTest::newRow("VSI with no rate list") << 1 << -1 << hexBytes("A55A000A0101FFF50D0A");
}

void TestBoxLink::modeSetOnOpen()
{
    QFETCH(int, mode);
    QFETCH(int, baud);
    QFETCH(QByteArray, expected);
    writeSettingsIni({{"mode", mode}, {"baudrate", baud}});
    Pty pty;
    MainWindow w;
    connectTo(w, pty.slavePath());
    QCOMPARE(pty.readAtLeast(expected.size()), expected);
    QCOMPARE(w.ui->actionConnect->text(), QString("Connect"));
    QVERIFY(!w.ui->actionConfig->isEnabled());
    QCOMPARE(w.statusBar()->currentMessage(), w.settings->serialPort->portName() + " openned");
}

void TestBoxLink::unhandledKindsGetHeartbeat_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<bool>("answered");
    QTest::newRow("kind 5 answered") << hexBytes("A55A0008050D0D0A") << true;
    QTest::newRow("kind 0x42 with a body answered") << BoxFrame::build(0x42, "xyz") << true;
    QTest::newRow("kind 0 not answered") << BoxFrame::build(0x00, "abc") << false;
    QTest::newRow("bus data not answered") << hexBytes("A55A0016020000000A0000000C00000B010B00130D0A") << false;
}

void TestBoxLink::unhandledKindsGetHeartbeat()
{
    QFETCH(QByteArray, frame);
    QFETCH(bool, answered);
    Pty pty;
    MainWindow w;
    connectTo(w, pty.slavePath());
    pty.readAtLeast(10);
    QVERIFY(!w.lampOn);
    pty.write(frame);
    QVERIFY(waitUntil([&] { return w.lampOn; }));
    QVERIFY(w.watchdogTimer->isActive());
    const QByteArray back = pty.readAtLeast(8, answered ? 3000 : 300);
    QCOMPARE(back, answered ? heartFrame : QByteArray());

    // A second good frame turns the lamp off again: it blinks.
    pty.write(frame);
    QVERIFY(waitUntil([&] { return !w.lampOn; }));
}

void TestBoxLink::fccErrorDropsFrame()
{
    MessageLog log;
    Pty pty;
    MainWindow w;
    connectTo(w, pty.slavePath());
    pty.readAtLeast(10);
    pty.write(hexBytes("A55A0008050C0D0A"));
    QVERIFY(waitUntil([&] { return log.contains("FCC error"); }));
    QVERIFY(log.contains("A55A0008050C0D0A"));
    QVERIFY(!w.lampOn);
    QVERIFY(!w.watchdogTimer->isActive());
    QVERIFY(w.rxBuffer.isEmpty());
    QCOMPARE(pty.readAtLeast(1, 300), QByteArray());

    // The receiver carries on with the next frame.
    pty.write(heartFrame);
    QCOMPARE(pty.readAtLeast(8), heartFrame);
}

void TestBoxLink::noiseBeforeHeader()
{
    Pty pty;
    MainWindow w;
    connectTo(w, pty.slavePath());
    pty.readAtLeast(10);
    // A noise byte ends the call that drops it; the frame behind it waits.
    pty.write(hexBytes("00") + heartFrame);
    QVERIFY(waitUntil([&] { return w.rxBuffer == heartFrame; }));
    QVERIFY(!w.lampOn);
    QCOMPARE(pty.readAtLeast(1, 200), QByteArray());
    // The next arrival releases it; its own A5-without-5A pair is dropped whole.
    pty.write(hexBytes("A511"));
    QCOMPARE(pty.readAtLeast(8), heartFrame);
    QVERIFY(w.lampOn);
    QVERIFY(waitUntil([&] { return w.rxBuffer.isEmpty(); }));
}

void TestBoxLink::frameSplitAcrossChunks()
{
    Pty pty;
    MainWindow w;
    connectTo(w, pty.slavePath());
    pty.readAtLeast(10);
    const QByteArray frame = BoxFrame::build(0x07, QByteArray(40, 'x'));
    for (const QByteArray &part : {frame.left(1), frame.mid(1, 3), frame.mid(4, 20), frame.mid(24)}) {
        QVERIFY(pty.readAtLeast(1, 150).isEmpty());
        pty.write(part);
    }
    QCOMPARE(pty.readAtLeast(8), heartFrame);
    QVERIFY(w.rxBuffer.isEmpty());
}

void TestBoxLink::twoFramesInOneChunk()
{
    Pty pty;
    MainWindow w;
    connectTo(w, pty.slavePath());
    pty.readAtLeast(10);
    pty.write(heartFrame + BoxFrame::build(0x09, "ab"));
    QCOMPARE(pty.readAtLeast(16), heartFrame + heartFrame);
    QVERIFY(!w.lampOn); // inverted twice
}

void TestBoxLink::shortLengthFieldSkipsHeader()
{
    Pty pty;
    MainWindow w;
    connectTo(w, pty.slavePath());
    pty.readAtLeast(10);
    // A length of 7 drops the four header bytes; the heartbeat frame after
    // them is still found.
    pty.write(hexBytes("A55A0007") + heartFrame);
    QCOMPARE(pty.readAtLeast(8), heartFrame);
}

void TestBoxLink::versionReport_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QString>("version");
    QTest::newRow("plain text") << versionFrame("XYZ_1.0.0") << QString("XYZ_1.0.0");
    QTest::newRow("count zero empties it") << versionFrame("") << QString();
    QTest::newRow("negative count empties it") << BoxFrame::build(0x03, hexBytes("F0414243")) << QString();
    QTest::newRow("high bytes kept as Latin-1") << versionFrame("\xE9v") << QString::fromLatin1("\xE9v");
    QTest::newRow("count past the frame dropped") << BoxFrame::build(0x03, hexBytes("05414243")) << QString("old");
}

void TestBoxLink::versionReport()
{
    QFETCH(QByteArray, frame);
    QFETCH(QString, version);
    Pty pty;
    MainWindow w;
    w.firmwareVersion = "old";
    connectTo(w, pty.slavePath());
    pty.readAtLeast(10);
    pty.write(frame);
    QVERIFY(waitUntil([&] { return w.lampOn; }));
    QCOMPARE(w.firmwareVersion, version);
}

void TestBoxLink::shortBusDataFrameDropped()
{
    MessageLog log;
    Pty pty;
    MainWindow w;
    connectTo(w, pty.slavePath());
    pty.readAtLeast(10);
    pty.write(BoxFrame::build(0x02, hexBytes("0000")));
    QVERIFY(waitUntil([&] { return w.lampOn; }));
    QVERIFY(log.contains("bus data frame too short"));
    QVERIFY(w.ui->textBrowserParsed->toPlainText().isEmpty());
}

void TestBoxLink::portToggleClosesAndReopens()
{
    Pty pty;
    MainWindow w;
    connectTo(w, pty.slavePath());
    QVERIFY(w.settings->serialPort->isOpen());
    w.portToggle();
    QVERIFY(!w.settings->serialPort->isOpen());
    QCOMPARE(w.ui->actionConnect->text(), QString("Disconnect"));
    QVERIFY(w.ui->actionConfig->isEnabled());
    QCOMPARE(w.statusBar()->currentMessage(), w.settings->serialPort->portName() + " closed");
    pty.read();
    w.portToggle();
    QVERIFY(w.settings->serialPort->isOpen());
    QCOMPARE(pty.readAtLeast(10).size(), 10);
}

void TestBoxLink::openFailureReported()
{
    MessageLog log;
    MainWindow w;
    w.settings->addPortPath("/dev/vendscope-no-such-port");
    w.portToggle();
    QVERIFY(!w.settings->serialPort->isOpen());
    QVERIFY(log.contains("open port failed"));
    QCOMPARE(w.statusBar()->currentMessage(), QString("open vendscope-no-such-port failed"));
    QVERIFY(w.ui->actionConfig->isEnabled());
}

void TestBoxLink::watchdogReopensPort()
{
    MessageLog log;
    Pty pty;
    MainWindow w;
    connectTo(w, pty.slavePath());
    pty.readAtLeast(10);
    w.watchdogTimer->setInterval(200); // the same handler, sooner
    pty.write(heartFrame);
    QVERIFY(waitUntil([&] { return w.lampOn; }));
    QVERIFY(waitUntil([&] { return log.contains("port reconnected:"); }));
    QVERIFY(!w.lampOn);
    QVERIFY(w.settings->serialPort->isOpen());
    // The watchdog sends nothing but the heartbeat answer from before.
    QCOMPARE(pty.readAtLeast(100, 300), heartFrame);
}

void TestBoxLink::reconnectTimerSendsModeSet()
{
    Pty pty;
    MainWindow w;
    connectTo(w, pty.slavePath());
    pty.readAtLeast(10);
    QCOMPARE(w.reconnectTimer->interval(), 300);

    // During an upgrade the reopen is silent.
    w.fwUpgrade->upgradeRunning = true;
    w.reconnectTimer->start();
    QVERIFY(waitUntil([&] { return !w.reconnectTimer->isActive(); }));
    QCOMPARE(pty.readAtLeast(1, 300), QByteArray());

    // After it, the reopen tells the box its mode again.
    w.fwUpgrade->upgradeRunning = false;
    emit w.fwUpgrade->upgradeEnd();
    QVERIFY(w.reconnectTimer->isActive());
    QCOMPARE(pty.readAtLeast(10), hexBytes("A55A000A0100000B0D0A"));
    QVERIFY(!w.reconnectTimer->isActive());
}

void TestBoxLink::farSideLossHandledOnce()
{
    auto pty = std::make_unique<Pty>();
    MainWindow w;
    connectTo(w, pty->slavePath());
    pty->readAtLeast(10);
    const QString name = w.settings->serialPort->portName();
    QStringList shown;
    connect(w.statusBar(), &QStatusBar::messageChanged, this, [&](const QString &m) { if (!m.isEmpty()) shown << m; });

    pty.reset();
    QVERIFY(waitUntil([&] { return !w.settings->serialPort->isOpen(); }, 1000));
    const clock_t before = clock();
    QTest::qWait(1000);
    const double cpuMs = double(clock() - before) * 1000.0 / CLOCKS_PER_SEC;
    QCOMPARE(shown.size(), 1);
    QVERIFY2(shown.first().startsWith(name + " lost: "), qPrintable(shown.first()));
    QVERIFY2(cpuMs < 50, qPrintable(QString("CPU %1 ms").arg(cpuMs)));
    QCOMPARE(w.ui->actionConnect->icon().cacheKey() != 0, true);
    QVERIFY(w.ui->actionConfig->isEnabled());

    // A new far side, selected and connected, works again.
    Pty again;
    connectTo(w, again.slavePath());
    QVERIFY(w.settings->serialPort->isOpen());
    QCOMPARE(again.readAtLeast(10).size(), 10);
    again.write(heartFrame);
    QCOMPARE(again.readAtLeast(8), heartFrame);
}

void TestBoxLink::reconnectFollowsBoxThatComesBack()
{
    // A box entering its boot loader re-enumerates: the device goes away and
    // a new one appears under the same link.
    QTemporaryDir dir;
    const QString link = dir.filePath("box");
    auto first = std::make_unique<Pty>();
    QVERIFY(QFile::link(first->slavePath(), link));
    MainWindow w;
    connectTo(w, link);
    QVERIFY(w.settings->serialPort->isOpen());
    first->readAtLeast(10);

    w.fwUpgrade->upgradeRunning = true;
    w.reconnectTimer->start();
    first.reset();
    QVERIFY(QFile::remove(link));
    QTest::qWait(700); // a few ticks find nothing to open
    QVERIFY(w.reconnectTimer->isActive());

    Pty second;
    QVERIFY(QFile::link(second.slavePath(), link));
    QVERIFY(waitUntil([&] { return !w.reconnectTimer->isActive(); }, 2000));
    QVERIFY(w.settings->serialPort->isOpen());
    QCOMPARE(second.readAtLeast(1, 300), QByteArray()); // silent during the upgrade
    QVERIFY(!w.ui->actionConfig->isEnabled());

    w.fwUpgrade->upgradeRunning = false;
    emit w.fwUpgrade->upgradeEnd();
    QCOMPARE(second.readAtLeast(10), hexBytes("A55A000A0100000B0D0A"));
    second.write(heartFrame);
    QCOMPARE(second.readAtLeast(8), heartFrame);
}

QTEST_MAIN(TestBoxLink)
#include "tst_boxlink.moc"
