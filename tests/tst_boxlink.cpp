// The box link end to end over a pseudo-terminal: receiver, commands, port control.
#include "testsupport.h"

#include "link/comm.h"
#include "update/fwupgrade.h"

static const QByteArray heartFrame = hx("A55A0008050D0D0A");
static const QByteArray modeSetMdb = hx("A55A000A0100000B0D0A");

// A window whose port is open on a fresh pseudo-terminal, past its modeSet.
struct Linked
{
    Pty pty;
    MainWindow w;
    QByteArray opening; // what the open sent: the modeSet
    Linked()
    {
        connectTo(w, pty.slavePath());
        opening = pty.readAtLeast(10);
    }
};

class TestBoxLink : public QObject
{
    Q_OBJECT
private slots:
    void init() { writeSettingsIni(); }
    void cleanupTestCase() { removeSettingsIni(); }

    void modeSetOnOpen_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("baud");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("232 at 9600") << 3 << 1 << hx("A55A000A010301090D0A");
        QTest::newRow("CAN at 500 kbps") << 7 << 2 << hx("A55A000A0107020E0D0A");
        QTest::newRow("ISS has no rate list: FF") << 4 << 0 << hx("A55A000A0104FFF00D0A");
    }
    void modeSetOnOpen()
    {
        QFETCH(int, mode);
        QFETCH(int, baud);
        QFETCH(QByteArray, expected);
        writeSettingsIni({{"mode", mode}, {"baudrate", baud}});
        Linked l;
        QCOMPARE(l.opening, expected);
        l.pty.write(expected); // passes the receiver's own check too
        QVERIFY(waitUntil([&] { return l.w.lampOn; }));
        QCOMPARE(l.w.ui->actionConnect->text(), QString("Connect"));
        QVERIFY(!l.w.ui->actionConfig->isEnabled());
        QCOMPARE(l.w.statusBar()->currentMessage(), l.w.settings->serialPort->portName() + " openned");
        l.w.portToggle();
        QVERIFY(!l.w.settings->serialPort->isOpen());
        QCOMPARE(l.w.ui->actionConnect->text(), QString("Disconnect"));
        QVERIFY(l.w.ui->actionConfig->isEnabled());
        QCOMPARE(l.w.statusBar()->currentMessage(), l.w.settings->serialPort->portName() + " closed");
        l.w.portToggle();
        QCOMPARE(l.pty.readAtLeast(18), heartFrame + expected); // the echo's answer, then the new open's modeSet
    }
    void receiver_data()
    {
        // Each chunk arrives on its own: the next is sent once the receiver has
        // taken the one before.
        QTest::addColumn<QList<QByteArray>>("chunks");
        QTest::addColumn<int>("goodFrames");
        QTest::addColumn<int>("heartbeats");
        QTest::addColumn<QByteArray>("left");
        const QByteArray other = BoxFrame::build(0x42, "xyz");
        const QByteArray big = BoxFrame::build(0x07, QByteArray(40, 'x'));
        using Chunks = QList<QByteArray>;
        QTest::newRow("unhandled kind answered") << Chunks{heartFrame} << 1 << 1 << QByteArray();
        QTest::newRow("kind 0 not answered") << Chunks{BoxFrame::build(0x00, "abc")} << 1 << 0 << QByteArray();
        QTest::newRow("bus data not answered")
            << Chunks{hx("A55A0016020000000A0000000C00000B010B00130D0A")} << 1 << 0 << QByteArray();
        QTest::newRow("short bus data dropped") << Chunks{BoxFrame::build(0x02, "ab")} << 1 << 0 << QByteArray();
        QTest::newRow("bad FCC dropped") << Chunks{hx("A55A0008050C0D0A")} << 0 << 0 << QByteArray();
        QTest::newRow("bad FCC then a good frame") << Chunks{hx("A55A0008050C0D0A"), other} << 1 << 1 << QByteArray();
        QTest::newRow("noise byte ends the call, frame waits") << Chunks{hx("00") + heartFrame} << 0 << 0 << heartFrame;
        QTest::newRow("next arrival releases it, A5 pair dropped")
            << Chunks{hx("00") + heartFrame, hx("A511")} << 1 << 1 << QByteArray();
        QTest::newRow("frame split over four chunks")
            << Chunks{big.left(1), big.mid(1, 3), big.mid(4, 20), big.mid(24)} << 1 << 1 << QByteArray();
        QTest::newRow("two frames in one chunk") << Chunks{heartFrame + other} << 2 << 2 << QByteArray();
        QTest::newRow("length 7 drops the header only") << Chunks{hx("A55A0007") + heartFrame} << 1 << 1 << QByteArray();
    }
    void receiver()
    {
        QFETCH(QList<QByteArray>, chunks);
        QFETCH(int, goodFrames);
        QFETCH(int, heartbeats);
        Linked l;
        int arrivals = 0;
        connect(l.w.settings->serialPort, &QSerialPort::readyRead, this, [&] { ++arrivals; });
        for (const QByteArray &chunk : chunks) {
            const int before = arrivals;
            l.pty.write(chunk);
            QVERIFY(waitUntil([&] { return arrivals > before; }));
        }
        QCOMPARE(l.pty.readAtLeast(8 * heartbeats + 1, 300), heartFrame.repeated(heartbeats));
        QCOMPARE(l.w.lampOn, goodFrames % 2 == 1);
        QCOMPARE(l.w.watchdogTimer->isActive(), goodFrames > 0);
        QTEST(l.w.rxBuffer, "left");
    }
    void versionReport_data()
    {
        QTest::addColumn<QByteArray>("frame");
        QTest::addColumn<QString>("version");
        QTest::newRow("plain text") << versionFrame("XYZ_1.0.0") << QString("XYZ_1.0.0");
        QTest::newRow("count zero empties it") << versionFrame("") << QString();
        QTest::newRow("negative count empties it") << BoxFrame::build(0x03, hx("F0414243")) << QString();
        QTest::newRow("high bytes kept as Latin-1") << versionFrame("\xE9v") << QString::fromLatin1("\xE9v");
        QTest::newRow("count past the frame dropped") << BoxFrame::build(0x03, hx("05414243")) << QString("old");
    }
    void versionReport()
    {
        QFETCH(QByteArray, frame);
        Linked l;
        l.w.firmwareVersion = "old";
        l.pty.write(frame);
        QVERIFY(waitUntil([&] { return l.w.lampOn; }));
        QTEST(l.w.firmwareVersion, "version");
    }
    void openFailure()
    {
        MessageLog log;
        MainWindow w;
        w.comm->heart(); // nothing to write to
        QVERIFY(log.contains("Port not open yet!"));
        w.settings->addPortPath("/dev/vendscope-no-such-port");
        w.portToggle();
        QVERIFY(!w.settings->serialPort->isOpen());
        QVERIFY(log.contains("open port failed"));
        QCOMPARE(w.statusBar()->currentMessage(), QString("open vendscope-no-such-port failed"));
        QVERIFY(w.ui->actionConfig->isEnabled());
    }
    void watchdogReopensPort()
    {
        MessageLog log;
        Linked l;
        l.w.watchdogTimer->setInterval(200); // the same handler, sooner
        l.pty.write(heartFrame);
        QVERIFY(waitUntil([&] { return log.contains("port reconnected:"); }));
        QVERIFY(!l.w.lampOn);
        QVERIFY(l.w.settings->serialPort->isOpen());
        // The watchdog sends nothing: only the heartbeat answer from before.
        QCOMPARE(l.pty.readAtLeast(100, 300), heartFrame);
    }
    void farSideLossHandledOnce()
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
        QTest::qWait(1000); // the error is handled once, not on every event-loop turn
        QCOMPARE(shown.size(), 1);
        QVERIFY2(shown.first().startsWith(name + " lost: "), qPrintable(shown.first()));
        QCOMPARE(w.ui->actionConnect->text(), QString("Connect"));
        QVERIFY(w.ui->actionConfig->isEnabled());

        // A new far side, selected and connected, works again.
        Pty again;
        connectTo(w, again.slavePath());
        QCOMPARE(again.readAtLeast(10), modeSetMdb);
        again.write(heartFrame);
        QCOMPARE(again.readAtLeast(8), heartFrame);
    }
    void reconnectFollowsBoxThatComesBack()
    {
        // A box entering its boot loader re-enumerates: the device goes away and
        // a new one appears under the same link.
        QTemporaryDir dir;
        const QString link = dir.filePath("box");
        auto first = std::make_unique<Pty>();
        QVERIFY(QFile::link(first->slavePath(), link));
        MainWindow w;
        connectTo(w, link);
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
        QCOMPARE(second.readAtLeast(1, 300), QByteArray()); // silent during the upgrade
        QVERIFY(!w.ui->actionConfig->isEnabled()); // what follows an ended upgrade, the upgrade tests show
    }
};

QTEST_MAIN(TestBoxLink)
#include "tst_boxlink.moc"
