// The box simulator as a user meets it: started as a process, its pseudo-
// terminal opened by hand or by the main window.
#include "testsupport.h"

#include "app/mainwindow.h"
#include "link/frame.h"
#include "settings/settings.h"
#include "ui_mainwindow.h"

#include <QComboBox>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QSerialPort>
#include <QSettings>
#include <QTemporaryDir>
#include <QTextBrowser>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#ifdef VS_BOXSIM

namespace {

// One simulator process; it is stopped when this goes.
class Sim
{
public:
    explicit Sim(const QStringList &args)
    {
        proc.start(VS_BOXSIM, args);
        if (!proc.waitForStarted(5000))
            return;
        waitUntil([&] { return proc.canReadLine() || proc.state() != QProcess::Running; }, 10000);
        path = QString::fromLocal8Bit(proc.readLine()).trimmed();
    }
    ~Sim()
    {
        if (proc.state() == QProcess::Running) {
            proc.terminate();
            if (!proc.waitForFinished(5000))
                proc.kill();
        }
        proc.waitForFinished(5000);
    }
    QString stderrText()
    {
        err += proc.readAllStandardError();
        return QString::fromLocal8Bit(err);
    }
    QProcess proc;
    QString path;
    QByteArray err;
};

// The program's side of the line, opened by hand: sends commands and cuts
// the box's frames out of what comes back.
class Line
{
public:
    explicit Line(const QString &path)
    {
        fd = ::open(QFile::encodeName(path).constData(), O_RDWR | O_NOCTTY | O_NONBLOCK);
        if (fd < 0)
            return;
        termios t{};
        tcgetattr(fd, &t);
        cfmakeraw(&t);
        tcsetattr(fd, TCSANOW, &t);
    }
    ~Line()
    {
        if (fd >= 0)
            ::close(fd);
    }
    bool isOpen() const { return fd >= 0; }
    void send(const QByteArray &bytes) { QCOMPARE(::write(fd, bytes.constData(), size_t(bytes.size())), ssize_t(bytes.size())); }
    void modeSet(int mode, int rate)
    {
        QByteArray body;
        body.append(char(mode));
        body.append(char(rate));
        send(BoxFrame::build(BoxFrame::KindModeSet, body));
    }

    // Reads whatever is there and returns the complete frames in it.
    QList<QByteArray> frames()
    {
        char buf[4096];
        for (ssize_t n; (n = ::read(fd, buf, sizeof buf)) > 0;)
            raw.append(buf, n);
        QList<QByteArray> out;
        while (raw.size() >= 4) {
            if (!raw.startsWith("\xA5\x5A")) {
                raw.remove(0, 1);
                continue;
            }
            const int n = be16(reinterpret_cast<const unsigned char *>(raw.constData()) + 2);
            if (n < BoxFrame::minLength) {
                raw.remove(0, 4);
                continue;
            }
            if (raw.size() < n)
                break;
            out << raw.left(n);
            raw.remove(0, n);
        }
        return out;
    }
    // Frames of one kind, waiting until count of them came.
    QList<QByteArray> waitFor(unsigned char kind, int count, int timeoutMs = 5000)
    {
        QList<QByteArray> got;
        waitUntil([&] {
            for (const QByteArray &f : frames())
                if (static_cast<unsigned char>(f.at(4)) == kind)
                    got << f;
            return got.size() >= count;
        }, timeoutMs);
        return got.mid(0, count);
    }

    int fd = -1;
    QByteArray raw;
};

QString writeScenario(const QTemporaryDir &dir, const QByteArray &text)
{
    const QString path = dir.filePath("scenario.txt");
    QFile f(path);
    if (f.open(QIODevice::WriteOnly))
        f.write(text);
    return path;
}

// Paragraphs of the log view (one per transfer) that contain text.
QStringList linesWith(MainWindow &w, const QString &text)
{
    return w.ui->textBrowserParsed->document()->toRawText().split(QChar::ParagraphSeparator).filter(text);
}

} // namespace

class TestBoxSim : public QObject
{
    Q_OBJECT
private slots:
    void init() { writeSettingsIni(); }
    void cleanupTestCase() { removeSettingsIni(); }

    void shippedScenariosAreValid();
    void badScenarioNamesFileAndLine_data();
    void badScenarioNamesFileAndLine();
    void playback_data();
    void playback();
    void versionAndFirmwareRequestOnce();
    void bootStopsTheBusReports();
    void linkFollowsTheDevice();
    void demoSettingsSelectThePort();
    void windowKeepsTheConnection();
    void silenceTripsTheWatchdog();
    void noiseIsSurvived();
    void mdbTrafficDecoded();
    void otherModesAfterReconnect_data();
    void otherModesAfterReconnect();
};

void TestBoxSim::shippedScenariosAreValid()
{
    QProcess p;
    p.start(VS_BOXSIM, {"--check"});
    QVERIFY(p.waitForFinished(10000));
    QCOMPARE(p.readAllStandardError(), QByteArray());
    QCOMPARE(p.exitCode(), 0);
}

void TestBoxSim::badScenarioNamesFileAndLine_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("message");
    QTest::newRow("unknown direction") << QByteArray("M 1 0B* 0B\nX 2 00\n") << ":2: bad direction 'X'";
    QTest::newRow("direction above 255") << QByteArray("256 1 00\n") << ":1: bad direction '256'";
    QTest::newRow("gap missing") << QByteArray("# power-up\nM\n") << ":2: missing tick gap";
    QTest::newRow("gap not a number") << QByteArray("S 1x 00\n") << ":1: bad tick gap '1x'";
    QTest::newRow("gap too large") << QByteArray("S 99999999999 00\n") << ":1: bad tick gap '99999999999'";
    QTest::newRow("byte of three digits") << QByteArray("M 1 0B 123\n") << ":1: bad byte '123'";
    QTest::newRow("byte not hex") << QByteArray("M 1 0G\n") << ":1: bad byte '0G'";
    QTest::newRow("mode bit on a string") << QByteArray("M 1 \"AB\"*\n") << ":1: unexpected '*' after a string";
    QTest::newRow("string not closed") << QByteArray("\nM 1 \"ACM 00\n") << ":2: unterminated string";
    QTest::newRow("binary bytes shown escaped") << QByteArray("M 1 \xff\xfe\n") << ":1: bad byte '\\xff\\xfe'";
    QTest::newRow("line too long") << "M 1" + QByteArray(" 00").repeated(4097) << ":1: more than 4096 bytes on one line";
    QTest::newRow("second loop mark") << QByteArray("loop\nM 1 00\nloop\n") << ":3: a second loop mark";
    QTest::newRow("nothing after loop") << QByteArray("M 1 00\nloop\n# end\n") << ": nothing after the loop mark";
    QTest::newRow("no transfers at all") << QByteArray("# only words\n\n") << ": no transfers";
}

void TestBoxSim::badScenarioNamesFileAndLine()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, message);
    QTemporaryDir dir;
    const QString file = writeScenario(dir, text);
    QProcess p;
    // Without --check: a bad file must stop the simulator before it opens a port.
    p.start(VS_BOXSIM, {"--scenario", file});
    QVERIFY(p.waitForFinished(10000));
    QCOMPARE(p.exitCode(), 2);
    QCOMPARE(p.readAllStandardOutput(), QByteArray());
    const QString err = QString::fromLocal8Bit(p.readAllStandardError());
    QVERIFY2(err.contains(file + message), qPrintable(err));
}

void TestBoxSim::playback_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("rate");
    QTest::addColumn<QByteArray>("scenario");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("MDB bytes go out with their mode bits")
        << 0 << 0 << QByteArray("M 5 0B* 0B\n")
        << hexBytes("A55A001602000000050000000800000B010B00180D0A");
    QTest::newRow("MDB byte without a mark has the mode bit clear")
        << 0 << 0 << QByteArray("M 1 00\n")
        << hexBytes("A55A001402000000010000000300000000140D0A");
    QTest::newRow("CHK is the sum of the bytes before it")
        << 0 << 0 << QByteArray("S 2 01 02 03 CHK*\n")
        << hexBytes("A55A001A020000000200000007010001000200030006011B0D0A");
    QTest::newRow("CHK after a bar sums only what follows the bar")
        << 4 << 0 << QByteArray("M 1 00 00 | 01 02 CHK\n")
        << hexBytes("A55A001702000000010000000700040000010203170D0A");
    QTest::newRow("strings give their characters, ticks follow the rate")
        << 3 << 5 << QByteArray("M 0 \"AT\" 0D  # at 115200\n")
        << hexBytes("A55A0015020000000000000001000341540D0D0D0A");
    QTest::newRow("sync mark has no bytes and takes no time")
        << 2 << 0 << QByteArray("2 7\n")
        << hexBytes("A55A00120200000007000000070202100D0A");
    QTest::newRow("ticks keep counting when the scenario starts over")
        << 3 << 1 << QByteArray("M 10 00\nS 5 01\n")
        << hexBytes("A55A0013020000000A0000000C000300140D0A"
                    "A55A0013020000001100000013010301100D0A"
                    "A55A0013020000001D0000001F000300100D0A");
    QTest::newRow("loop mark repeats only what follows it")
        << 3 << 1 << QByteArray("M 10 00\nloop\nS 5 01\n")
        << hexBytes("A55A0013020000000A0000000C000300140D0A"
                    "A55A0013020000001100000013010301100D0A"
                    "A55A001302000000180000001A010301100D0A");
}

void TestBoxSim::playback()
{
    QFETCH(int, mode);
    QFETCH(int, rate);
    QFETCH(QByteArray, scenario);
    QFETCH(QByteArray, expected);
    QTemporaryDir dir;
    Sim sim({"--scenario", writeScenario(dir, scenario), "--rate", "100"});
    Line line(sim.path);
    QVERIFY2(line.isOpen(), qPrintable(sim.stderrText()));
    line.modeSet(mode, rate);
    QByteArray got;
    const QList<QByteArray> frames = line.waitFor(BoxFrame::KindBusData, 3);
    for (const QByteArray &f : frames)
        got += f;
    QCOMPARE(got.left(expected.size()).toHex(' '), expected.toHex(' '));
}

void TestBoxSim::versionAndFirmwareRequestOnce()
{
    Sim sim({"--version", "ABC_2.3.4", "--request-firmware", "--rate", "50"});
    Line line(sim.path);
    QVERIFY(line.isOpen());
    // The box says nothing until it is told what to listen to.
    QTest::qWait(300);
    QCOMPARE(line.frames().size(), 0);

    line.modeSet(3, 1);
    QList<QByteArray> first;
    QVERIFY(waitUntil([&] {
        first += line.frames();
        return first.size() >= 3;
    }));
    QCOMPARE(first.at(0), hexBytes("A55A001203094142435F322E332E34320D0A")); // version ABC_2.3.4
    QCOMPARE(first.at(1), hexBytes("A55A000850580D0A"));                     // firmware request
    QCOMPARE(first.at(2).at(4), char(BoxFrame::KindBusData));
    QCOMPARE(first.at(2).at(BoxFrame::modeOffset), char(3));

    // A second modeSet switches the bus but reports nothing new.
    line.modeSet(1, -1);
    QList<QByteArray> after;
    QVERIFY(waitUntil([&] {
        after += line.frames();
        return !after.isEmpty() && after.last().at(4) == BoxFrame::KindBusData && after.last().at(BoxFrame::modeOffset) == 1;
    }));
    for (const QByteArray &f : after)
        QVERIFY(f.at(4) == BoxFrame::KindBusData || f.at(4) == 0x07);
}

void TestBoxSim::bootStopsTheBusReports()
{
    Sim sim({"--rate", "100", "--status-ms", "50"});
    Line line(sim.path);
    line.modeSet(0, 0);
    QCOMPARE(line.waitFor(BoxFrame::KindBusData, 3).size(), 3);
    line.send(hexBytes("A55A0008060E0D0A"));
    QByteArray after;
    auto drain = [&] {
        char buf[4096];
        for (ssize_t n; (n = ::read(line.fd, buf, sizeof buf)) > 0;)
            after.append(buf, n);
    };
    // Reports that were already on the line may come first ...
    QVERIFY(waitUntil([&] {
        drain();
        while (after.startsWith("\xA5\x5A") && after.size() >= 4) {
            const int n = be16(reinterpret_cast<const unsigned char *>(after.constData()) + 2);
            if (n < BoxFrame::minLength || after.size() < n)
                break;
            after.remove(0, n);
        }
        return !after.isEmpty() && !after.startsWith('\xA5');
    }));
    // ... then the boot loader opens its exchange, and the box's own frames stop.
    QVERIFY2(after.startsWith('\x16'), after.toHex(' ').constData());
    QTest::qWait(300);
    drain();
    QVERIFY2(!after.contains("\xA5\x5A"), after.toHex(' ').constData());
}

void TestBoxSim::linkFollowsTheDevice()
{
    QTemporaryDir dir;
    const QString link = dir.filePath("box");
    {
        Sim sim({"--link", link});
        QVERIFY(!sim.path.isEmpty());
        QCOMPARE(QFileInfo(link).symLinkTarget(), sim.path);
        sim.proc.terminate();
        QVERIFY(sim.proc.waitForFinished(5000));
        QCOMPARE(sim.proc.exitCode(), 0);
        QVERIFY(!QFileInfo::exists(link));
    }
    // A file that is not a link is never replaced.
    QFile plain(link);
    QVERIFY(plain.open(QIODevice::WriteOnly));
    plain.close();
    QProcess p;
    p.start(VS_BOXSIM, {"--link", link});
    QVERIFY(p.waitForFinished(10000));
    QCOMPARE(p.exitCode(), 2);
    QVERIFY(QString::fromLocal8Bit(p.readAllStandardError()).contains("is not a symbolic link"));
}

void TestBoxSim::demoSettingsSelectThePort()
{
    // The demo's way in: the simulator writes the settings, the user only
    // clicks Connect.
    QTemporaryDir dir;
    const QString link = dir.filePath("box");
    QSettings old(settingsIniPath(), QSettings::IniFormat);
    old.setValue("Update", true);
    old.setValue("mode", 0);
    old.sync();
    Sim sim({"--link", link, "--demo-settings", settingsIniPath()});
    QSettings ini(settingsIniPath(), QSettings::IniFormat);
    QCOMPARE(ini.value("serial/portName").toString(), link);
    QCOMPARE(ini.value("Update").toBool(), false);
    QCOMPARE(ini.value("updateServer").toString(), QString("http://127.0.0.1:9"));
    QCOMPARE(ini.value("mode").toInt(), 0); // the user's other settings stay

    MainWindow w;
    w.portToggle();
    QVERIFY(w.settings->serialPort->isOpen());
    QCOMPARE(w.settings->serialPort->portName(), link);
    QVERIFY(waitUntil([&] { return w.firmwareVersion == "XYZ_1.0.0"; }));
}

void TestBoxSim::windowKeepsTheConnection()
{
    Sim sim({"--verbose", "--status-ms", "100", "--rate", "20"});
    MainWindow w;
    connectTo(w, sim.path);
    QVERIFY(w.settings->serialPort->isOpen());
    QVERIFY(waitUntil([&] { return w.firmwareVersion == "XYZ_1.0.0"; }));
    // Status frames are answered with heartbeats, and the lamp blinks.
    QVERIFY(waitUntil([&] { return sim.stderrText().count("boxsim: heart") >= 3; }));
    QVERIFY(sim.stderrText().contains("boxsim: modeSet 0 0"));
    bool sawOff = false, sawOn = false;
    QVERIFY(waitUntil([&] {
        (w.lampOn ? sawOn : sawOff) = true;
        return sawOn && sawOff;
    }));
}

void TestBoxSim::silenceTripsTheWatchdog()
{
    MessageLog log;
    Sim sim({"--silence-after", "5", "--rate", "50"});
    MainWindow w;
    connectTo(w, sim.path);
    QVERIFY(waitUntil([&] { return log.contains("port reconnected:"); }, 6000));
    QVERIFY(!w.lampOn);
}

void TestBoxSim::noiseIsSurvived()
{
    MessageLog log;
    Sim sim({"--noise", "--seed", "7", "--rate", "200"});
    writeSettingsIni({{"mode", 3}, {"baudrate", 1}});
    MainWindow w;
    connectTo(w, sim.path);
    QVERIFY(waitUntil([&] {
        return log.contains("FCC error") && linesWith(w, "41 54 2B 43 53 51 0D").size() >= 3;
    }, 10000));
    QVERIFY(w.settings->serialPort->isOpen());
}

void TestBoxSim::mdbTrafficDecoded()
{
    Sim sim({"--rate", "300"});
    MainWindow w;
    connectTo(w, sim.path);
    const QStringList wanted = {
        "JUST RESET", "Changer setup information", "VMC Command Code Sub-Command Changer Response Data (EXPANSION)",
        "Changer tube status", "COIN TYPE", "Changer Diagnostic Status", "Bill Validator Setup Information",
        "Bill Types with High Security:", "Escrow Enabled Bill Types:", "STACKER Status", "ESCROW POSITION",
        "Action: Stack the bill", "BILL STACKED", "Setup Config Data", "Setup Max/Min Prices", "Reader Config Data",
        "Expansion Request ID", "Peripheral ID", "Expansion Optional Feature Bit Enable", "Begin Session",
        "Vend Request", "Display Request (02H)", "Vend Approved", "Vend Success", "SESSION COMPLETE",
        "VEND DENIED", "END SESSION", "VMC RET", "unknow command 0x40"};
    QStringList missing;
    waitUntil([&] {
        missing.clear();
        const QString text = w.ui->textBrowserParsed->toPlainText();
        for (const QString &s : wanted)
            if (!text.contains(s))
                missing << s;
        return missing.isEmpty();
    }, 20000);
    QVERIFY2(missing.isEmpty(), qPrintable(missing.join(", ")));
    // The one corrupted changer report is the only checksum error.
    const QStringList errors = linesWith(w, "FCC err");
    QVERIFY(!errors.isEmpty());
    for (const QString &line : errors)
        QVERIFY2(line.contains("S-> 52 3D 8E"), qPrintable(line));
    // So is the late reply: the dollar coin's report turns red.
    QVERIFY(w.ui->textBrowserParsed->toHtml().contains(QRegularExpression("color:#ff0000;\">[^<]*S-&gt; 44 00 44")));
}

void TestBoxSim::otherModesAfterReconnect_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("expected");
    QTest::newRow("VSI") << 1 << "02 01 0C E1 03 00 0C 00 96 01";
    QTest::newRow("VTS") << 2 << "M-> 5A 02 10 00 01";
    QTest::newRow("232") << 3 << "41 54 2B 43 52 45 47 3F 0D";
    QTest::newRow("ISS decoded") << 4 << "Serial number registration requirement";
    QTest::newRow("ISS bad sum shown raw") << 4 << "01 08 00 09 32 0F 04 C0 00 96 00 7F";
    QTest::newRow("Debug") << 5 << "73 61 6C 65 73 3D";
    QTest::newRow("485") << 6 << "01 04 02 01 2C B9 7D";
    QTest::newRow("CAN") << 7 << "07 00 08 00 41 00";
    QTest::newRow("TTL") << 8 << "10 01 31 32 33";
}

void TestBoxSim::otherModesAfterReconnect()
{
    QFETCH(int, mode);
    QFETCH(QString, expected);
    Sim sim({"--rate", "200"});
    MainWindow w;
    connectTo(w, sim.path);
    QVERIFY(waitUntil([&] { return !w.firmwareVersion.isEmpty(); }));
    // Switch the mode the way a user does: settings, then close and open.
    w.settings->comboBoxInterpret->setCurrentIndex(mode);
    w.portToggle();
    w.portToggle();
    QVERIFY(w.settings->serialPort->isOpen());
    QVERIFY2(waitUntil([&] { return !linesWith(w, expected).isEmpty(); }, 10000),
             qPrintable(w.ui->textBrowserParsed->toPlainText().right(800)));
}

#else
class TestBoxSim : public QObject
{
    Q_OBJECT
private slots:
    void simulatorBuilt() { QSKIP("built without tools/"); }
};
#endif

QTEST_MAIN(TestBoxSim)
#include "tst_boxsim.moc"
