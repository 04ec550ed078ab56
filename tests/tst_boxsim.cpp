// The box simulator as a user meets it: a process whose line is played by hand or by the main window.
#include "testsupport.h"

#include "app/mainwindow.h"
#include "link/frame.h"
#include "settings/settings.h"
#include "ui_mainwindow.h"

#include <QComboBox>
#include <QFileInfo>
#include <QProcess>
#include <QSerialPort>
#include <QSettings>
#include <QTemporaryDir>
#include <QTextBrowser>

#ifdef VS_BOXSIM

// One simulator process, stopped when this goes; path is its first output line.
struct Sim
{
    explicit Sim(const QStringList &args)
    {
        proc.start(VS_BOXSIM, args);
        waitUntil([&] { return proc.canReadLine() || proc.state() == QProcess::NotRunning; }, 10000);
        path = QString::fromLocal8Bit(proc.readLine()).trimmed();
    }
    ~Sim() { proc.terminate(), proc.waitForFinished(5000); } // QProcess kills it if that was not enough
    // The program's side of the line, played by hand.
    void openLine() { port.setPortName(path); QVERIFY(port.open(QIODevice::ReadWrite)); }
    void modeSet(int mode, int rate) { port.write(BoxFrame::build(BoxFrame::KindModeSet, QByteArray(1, char(mode)) + char(rate))); }
    // Cuts whole frames off the front of what came; anything else stays in raw.
    QList<QByteArray> frames()
    {
        raw += port.readAll();
        QList<QByteArray> out;
        while (raw.startsWith("\xA5\x5A") && raw.size() >= 4) {
            const int n = be16(reinterpret_cast<const unsigned char *>(raw.constData()) + 2);
            if (n < BoxFrame::minLength || raw.size() < n)
                break;
            out << raw.left(n);
            raw.remove(0, n);
        }
        return out;
    }
    QProcess proc;
    QString path;
    QSerialPort port;
    QByteArray raw;
};

static QPair<int, QString> runToEnd(const QStringList &args)
{
    QProcess p;
    p.start(VS_BOXSIM, args);
    p.waitForFinished(10000);
    return {p.exitCode(), QString::fromLocal8Bit(p.readAllStandardOutput() + p.readAllStandardError())};
}

static QString writeScenario(const QTemporaryDir &dir, const QByteArray &text)
{
    QFile f(dir.filePath("scenario.txt"));
    return f.open(QIODevice::WriteOnly) && f.write(text) == text.size() ? f.fileName() : QString();
}

#endif

class TestBoxSim : public QObject
{
    Q_OBJECT
private slots:
#ifndef VS_BOXSIM
    void simulatorBuilt() { QSKIP("built without tools/"); }
#else
    void init() { writeSettingsIni(); }
    void cleanupTestCase() { removeSettingsIni(); }

    void shippedScenariosAreValid() { QCOMPARE(runToEnd({"--check"}), qMakePair(0, QString())); }

    void badScenarioNamesFileAndLine_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("message");
        QTest::newRow("direction above 255") << QByteArray("M 1 0B* 0B\n256 1 00\n") << ":2: bad direction '256'";
        QTest::newRow("gap missing") << QByteArray("# power-up\nM\n") << ":2: missing tick gap";
        QTest::newRow("binary byte shown escaped") << QByteArray("M 1 0B \xff\xfe\n") << ":1: bad byte '\\xff\\xfe'";
        QTest::newRow("string not closed") << QByteArray("\nM 1 \"ACM 00\n") << ":2: unterminated string";
        QTest::newRow("line too long") << "M 1" + QByteArray(" 00").repeated(4097) << ":1: more than 4096 bytes on one line";
        QTest::newRow("second loop mark") << QByteArray("loop\nM 1 00\nloop\n") << ":3: a second loop mark";
        QTest::newRow("no transfers at all") << QByteArray("# only words\n\n") << ": no transfers";
    }
    void badScenarioNamesFileAndLine()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, message);
        QTemporaryDir dir;
        const QString file = writeScenario(dir, text);
        // Without --check: a bad file must stop the simulator before it prints a port.
        const auto [code, out] = runToEnd({"--scenario", file});
        QCOMPARE(code, 2);
        QVERIFY2(out.startsWith("vendscope-boxsim: " + file + message), qPrintable(out));
    }

    // By hand: silence until modeSet, the version once, the scenario's bytes, boot hands over.
    void handPlayedLine_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("rate");
        QTest::addColumn<QByteArray>("scenario");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("MDB bytes go out with their mode bits")
            << 0 << 0 << QByteArray("M 5 0B* 0B\n") << hexBytes("A55A001602000000050000000800000B010B00180D0A");
        QTest::newRow("CHK sums what follows the bar and takes a mode bit")
            << 0 << 0 << QByteArray("S 2 01 | 02 03 CHK*\n") << hexBytes("A55A001A02000000020000000701000100020003000501180D0A");
        QTest::newRow("strings give their characters, ticks follow the rate")
            << 3 << 5 << QByteArray("M 0 \"AT\" 0D  # at 115200\n") << hexBytes("A55A0015020000000000000001000341540D0D0D0A");
        QTest::newRow("loop repeats only what follows it, ticks keep counting")
            << 3 << 1 << QByteArray("M 10 00\nloop\nS 5 01\n") << hexBytes("A55A0013020000000A0000000C000300140D0A"
                  "A55A0013020000001100000013010301100D0A" "A55A001302000000180000001A010301100D0A");
    }
    void handPlayedLine()
    {
        QFETCH(int, mode);
        QFETCH(int, rate);
        QFETCH(QByteArray, scenario);
        QFETCH(QByteArray, expected);
        QTemporaryDir dir;
        Sim sim({"--scenario", writeScenario(dir, scenario), "--rate", "100", "--status-ms", "150", "--version", "ABC_2.3.4", "--request-firmware"});
        sim.openLine();
        QVERIFY(!sim.port.waitForReadyRead(300));
        QList<QByteArray> bus, other; // other: anything but bus data, in order
        const auto collect = [&] {
            for (const QByteArray &f : sim.frames())
                (f.at(4) == BoxFrame::KindBusData ? bus : other) << f;
            return !bus.isEmpty() && bus.last().at(BoxFrame::modeOffset) == mode;
        };
        sim.modeSet(mode, rate);
        QVERIFY(waitUntil([&] { return collect() && bus.join().size() >= expected.size(); }));
        QCOMPARE(bus.join().left(expected.size()).toHex(' '), expected.toHex(' '));
        QCOMPARE(other.mid(0, 2), QList<QByteArray>({hexBytes("A55A001203094142435F322E332E34320D0A"),   // version ABC_2.3.4
                                                     hexBytes("A55A000850580D0A")}));                     // firmware request
        // Another modeSet switches the bus but reports nothing but status (07).
        other.clear();
        sim.modeSet(mode = 1, -1);
        QVERIFY(waitUntil(collect));
        for (const QByteArray &f : other)
            QVERIFY2(f.at(4) == 0x07, f.toHex(' ').constData());
        // Boot: after whole reports already on the line, the boot loader's token; then the box is quiet.
        sim.port.write(hexBytes("A55A0008060E0D0A"));
        QVERIFY(waitUntil([&] { return sim.frames(), !sim.raw.isEmpty() && !sim.raw.startsWith('\xA5'); }));
        QVERIFY2(sim.raw.startsWith('\x16'), sim.raw.toHex(' ').constData());
        QTest::qWait(300);
        sim.frames();
        QVERIFY2(!sim.raw.contains("\xA5\x5A"), sim.raw.toHex(' ').constData());
    }

    // The demo's way in: the simulator writes the settings, the user only clicks Connect.
    void demoSettingsAndLink()
    {
        QTemporaryDir dir;
        const QString link = dir.filePath("box");
        writeSettingsIni({{"Update", true}, {"updateServer", "http://127.0.0.1:1"}, {"mode", 0}});
        {
            Sim sim({"--link", link, "--demo-settings", settingsIniPath()});
            QCOMPARE(QFileInfo(link).symLinkTarget(), sim.path);
            QSettings ini(settingsIniPath(), QSettings::IniFormat);
            QCOMPARE(QStringList({ini.value("serial/portName").toString(), ini.value("Update").toString(), ini.value("updateServer").toString(),
                                  ini.value("mode").toString()}), QStringList({link, "false", "http://127.0.0.1:9", "0"})); // mode: the user's, kept
            MainWindow w;
            w.portToggle();
            QCOMPARE(w.settings->serialPort->portName(), link);
            QVERIFY(waitUntil([&] { return w.firmwareVersion == "XYZ_1.0.0"; }));
            sim.proc.terminate();
            QVERIFY(sim.proc.waitForFinished(5000));
            QCOMPARE(sim.proc.exitCode(), 0);
            QVERIFY(!QFileInfo(link).isSymLink());
        }
        // A file that is not a link is never replaced.
        QVERIFY(QFile(link).open(QIODevice::WriteOnly));
        const auto [code, err] = runToEnd({"--link", link});
        QCOMPARE(code, 2);
        QVERIFY2(err.contains("is not a symbolic link"), qPrintable(err));
    }

    // A mode switched as a user does it (settings, close, open) brings its traffic; noise is survived, silence reconnected.
    void windowAfterModeSwitch_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("logged");
        QTest::addColumn<QStringList>("shown"); // after the log message, if any
        const QStringList fast = {"--rate", "300"};
        QTest::newRow("MDB: coin, bill, cashless and the one planted FCC err") << fast << 0 << "" << QStringList{
            "JUST RESET", "Changer setup information", "COIN TYPE", "Bill Validator Setup Information", "ESCROW POSITION", "BILL STACKED",
            "Reader Config Data", "Begin Session", "Vend Approved", "SESSION COMPLETE", "VEND DENIED", "unknow command 0x40", "FCC err"};
        QTest::newRow("VSI") << fast << 1 << "" << QStringList{"02 01 0C E1 03 00 0C 00 96 01"};
        QTest::newRow("VTS") << fast << 2 << "" << QStringList{"M-> 5A 02 10 00 01"};
        QTest::newRow("232") << fast << 3 << "" << QStringList{"41 54 2B 43 52 45 47 3F 0D"};
        QTest::newRow("ISS") << fast << 4 << "" << QStringList{"Serial number registration requirement"};
        QTest::newRow("Debug") << fast << 5 << "" << QStringList{"73 61 6C 65 73 3D"};
        QTest::newRow("485") << fast << 6 << "" << QStringList{"01 04 02 01 2C B9 7D"};
        QTest::newRow("CAN") << fast << 7 << "" << QStringList{"07 00 08 00 41 00"};
        QTest::newRow("TTL") << fast << 8 << "" << QStringList{"10 01 31 32 33"};
        QTest::newRow("noise survived") << fast + QStringList{"--noise", "--seed", "7"} << 3 << "FCC error" << QStringList{"41 54 2B 43 53 51 0D"};
        QTest::newRow("silence trips the watchdog") << QStringList{"--silence-after", "5", "--rate", "50"} << 0 << "port reconnected:" << QStringList{};
    }
    void windowAfterModeSwitch()
    {
        QFETCH(QStringList, args);
        QFETCH(int, mode);
        QFETCH(QString, logged);
        QFETCH(QStringList, shown);
        MessageLog log;
        Sim sim(args);
        MainWindow w;
        connectTo(w, sim.path);
        QVERIFY(waitUntil([&] { return !w.firmwareVersion.isEmpty(); }));
        w.settings->comboBoxInterpret->setCurrentIndex(mode);
        w.portToggle();
        w.portToggle();
        QVERIFY(waitUntil([&] { return logged.isEmpty() || log.contains(logged); }, 10000));
        w.ui->actionClear->trigger();
        for (const QString &s : shown)
            QVERIFY2(waitUntil([&] { return w.ui->textBrowserParsed->toPlainText().contains(s); }, 20000), qPrintable(s));
        // Each transfer is a paragraph; the only checksum error is the corrupted changer report.
        for (const QString &line : w.ui->textBrowserParsed->document()->toRawText().split(QChar::ParagraphSeparator).filter("FCC err"))
            QVERIFY2(line.contains("S-> 52 3D 8E"), qPrintable(line));
        QVERIFY(w.settings->serialPort->isOpen());
    }
#endif
};

QTEST_MAIN(TestBoxSim)
#include "tst_boxsim.moc"
