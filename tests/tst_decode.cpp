// Captures as a user meets them: recorded live from the simulated box, opened
// in a fresh window, decoded by vendscope-decode, damaged files refused.
#include "testsupport.h"

#include "capture/capturefile.h"
#include "capture/pcapng.h"
#include "capture/recorder.h"
#include "protocols/linebuilder.h"

struct Run
{
    int code = -1;
    QString out;
    QString err;
};

static Run decode(const QStringList &args)
{
    QProcess p;
    p.start(VS_DECODE, args);
    p.waitForFinished(30000);
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, QString::fromUtf8(p.readAllStandardOutput()),
            QString::fromUtf8(p.readAllStandardError())};
}

// A coin changer POLL, its ACK and a bill validator POLL, as a capture file.
static QByteArray threeFrames()
{
    QByteArray file = Pcapng::header();
    Pcapng::appendPacket(file, 1000, busFrame(10, 12, 0, 0, hx("0B010B00")));
    Pcapng::appendPacket(file, 2000, busFrame(15, 16, 1, 0, hx("0001")));
    Pcapng::appendPacket(file, 3000, busFrame(30, 32, 0, 0, hx("33013300")));
    return file;
}

static void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(bytes);
}

// Runs the event loop until the view has stopped growing for a while.
static void waitForQuiet(const QTextBrowser *view, int minBlocks)
{
    int last = -1;
    QElapsedTimer still;
    waitUntil([&] {
        const int now = view->document()->blockCount();
        if (now != last) {
            last = now;
            still.restart();
        }
        return now >= minBlocks && still.elapsed() > 700;
    }, 20000);
}

class TestDecode : public QObject
{
    Q_OBJECT
private slots:
    void init() { writeSettingsIni(); }
    void cleanupTestCase() { removeSettingsIni(); }

    // First in this program: each mode's renderer is still as a fresh start leaves it, which is what a
    // capture's lines are compared with. One row per renderer, noise in one of them.
    void liveCaptureReopened_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<QStringList>("args");
        QTest::newRow("MDB") << 0 << QStringList();
        QTest::newRow("VSI") << 1 << QStringList();
        QTest::newRow("VTS") << 2 << QStringList();
        QTest::newRow("232 with noise") << 3 << QStringList{"--noise", "--seed", "3"};
        QTest::newRow("ISS") << 4 << QStringList();
    }
    void liveCaptureReopened()
    {
        QFETCH(int, mode);
        QFETCH(QStringList, args);
        QTemporaryDir dir;
        const QStringList simArgs = args + QStringList{"--rate", "400", "--silence-after", "120"};
        QString live;
        QString capture;
        int entries = 0;
        {
            writeSettingsIni({{"mode", mode}});
            BoxSim sim(simArgs + QStringList{"--link", dir.filePath("box"), "--demo-settings", settingsIniPath()});
            MainWindow w;
            w.ui->actionConnect->trigger();
            waitForQuiet(w.ui->textBrowserParsed, 60);
            live = w.ui->textBrowserParsed->toPlainText();
            entries = w.ui->textBrowserParsed->document()->blockCount();
            capture = w.recorder->currentFile();
            w.recorder->flush();
            QVERIFY(!capture.isEmpty());
        }
        QVERIFY(QFileInfo(capture).fileName().contains(QRegularExpression("^capture_\\d{8}_\\d{6}(_\\d+)?\\.pcapng$")));

        // Through the menu, as a user opens it, into a window that showed something else.
        MainWindow fresh;
        fresh.ui->textBrowserParsed->setPlainText("before");
        QString opened = dir.filePath("copy.pcapng");
        QVERIFY(QFile::copy(capture, opened));
        {
            const auto answers = answerModals({chooseFile(opened)});
            fresh.ui->actionOpenCapture->trigger();
        }
        QCOMPARE(fresh.ui->textBrowserParsed->toPlainText(), live);

        const Run run = decode({capture});
        QCOMPARE(run.code, 0);
        QCOMPARE(run.out, live + "\n");

        // The same traffic read straight off a second simulator's line, as a serial logger keeps it.
        BoxSim sim(simArgs);
        QSerialPort port(sim.path);
        QVERIFY(port.open(QIODevice::ReadWrite));
        port.write(BoxFrame::build(BoxFrame::KindModeSet, QByteArray(1, char(mode)) + char(0)));
        QByteArray dump;
        waitUntil([&] {
            dump += port.readAll();
            qint64 lines = 0;
            LineBuilder builder;
            CaptureFile::readData(dump, {[&](qint64, const QByteArray &f) { lines += !builder.line(f).isNull(); }, {}});
            return lines >= entries;
        }, 20000);
        writeFile(dir.filePath("dump.bin"), dump);
        const Run raw = decode({dir.filePath("dump.bin")});
        QCOMPARE(raw.code, 0);
        QCOMPARE(raw.out, live + "\n");
    }

    // Unusable input: exit status 2 and the reason on stderr; in the window a warning box, and the lines
    // before any damage shown (or the view left as it was).
    void damagedInput_data()
    {
        QTest::addColumn<QByteArray>("bytes"); // null: no such file
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<int>("shown"); // frames before the damage; -1: the view keeps what it held; -2: no window
        QTest::addColumn<QString>("reason");
        const QByteArray good = threeFrames();
        QByteArray lying = good;
        const int lastPacket = 28 + 24 + 4; // block header, the 22-byte frame padded, trailing length
        lying[good.size() - lastPacket + 7] = char(0x7F); // its length's high byte: far past the end
        QByteArray foreign = good;
        foreign[qFromLittleEndian<quint32>(good.constData() + 4) + 8] = 1; // the interface's link type: Ethernet
        QByteArray noise(3000, Qt::Uninitialized);
        QRandomGenerator rng(5);
        for (char &c : noise)
            c = char(rng.bounded(0xA0)); // never a frame header
        QTest::newRow("empty file") << QByteArray("") << QStringList() << -1 << "empty";
        QTest::newRow("no such file") << QByteArray() << QStringList() << -1 << "cannot open";
        QTest::newRow("cut mid-block") << good.left(good.size() - 5) << QStringList() << 2 << "2 frames";
        QTest::newRow("block length lies") << lying << QStringList() << 2 << "2 frames";
        QTest::newRow("foreign link type") << foreign << QStringList() << -1 << "link type";
        QTest::newRow("random bytes") << noise << QStringList() << -1 << "no interface-box frames";
        QTest::newRow("classic pcap") << hx("d4c3b2a1020004000000000000000000ffff000001000000") << QStringList() << -1 << "classic pcap";
        QTest::newRow("bad option") << good << QStringList{"--mode", "USB"} << -2 << "unknown mode";
        QTest::newRow("bad filter name") << good << QStringList{"--show", "poll,coins"} << -2 << "coins";
    }
    void damagedInput()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QStringList, options);
        QFETCH(int, shown);
        QFETCH(QString, reason);
        QTemporaryDir dir;
        const QString path = dir.filePath("input");
        if (!bytes.isNull())
            writeFile(path, bytes);
        const Run run = decode(options + QStringList{path});
        QCOMPARE(run.code, 2);
        QVERIFY2(run.err.contains(reason), qPrintable(run.err));
        QCOMPARE(run.out.isEmpty(), shown <= 0);
        if (shown == -2)
            return; // an option only the command line has

        MainWindow w;
        w.ui->textBrowserParsed->setPlainText("kept");
        QString box;
        {
            const auto answers = answerModals({readBox(&box)});
            QVERIFY(!w.showCapture(path));
        }
        QVERIFY2(box.contains(reason), qPrintable(box));
        const QString view = w.ui->textBrowserParsed->toPlainText();
        QCOMPARE(view, shown < 0 ? QString("kept") : run.out.chopped(1));
    }

    // The command line's plain text is the view's: blanks, breaks and entities as Qt's HTML import reads them.
    void plainTextAsTheView_data()
    {
        QTest::addColumn<QString>("line");
        QTest::newRow("a coloured line") << "<span style='color: red;'>0010 : M-> 0B 0B</span>";
        QTest::newRow("blank runs, a blank after a break") << "<span>a  b<br> c   </span>";
        QTest::newRow("indent after a break, trailing break") << "<span>x<br>&nbsp;&nbsp;&nbsp;&nbsp;y<br></span>";
        QTest::newRow("blanks around spans") << "<span>a </span> <span> b</span>";
        QTest::newRow("entities") << "<span>&lt;x&gt; &amp; &quot;&#65;&#x42; &bogus;</span>";
        QTest::newRow("empty") << "";
        QTest::newRow("leading blank") << "<span> lead\ttab\nnl</span>";
    }
    void plainTextAsTheView()
    {
        QFETCH(QString, line);
        QTextBrowser view;
        view.append("before");
        view.append(line);
        view.append("after");
        QCOMPARE("before\n" + plainText(line) + "\nafter", view.toPlainText());
    }

    // --mode keeps one bus, --no-translate and --hide/--show change lines as the switch and boxes do, --html
    // gives the fragments, --wireshark writes the MDB transfers.
    void options()
    {
        QTemporaryDir dir;
        QByteArray file = threeFrames();
        Pcapng::appendPacket(file, 4000, busFrame(40, 42, 0, 3, hx("4142")));
        writeFile(dir.filePath("c.pcapng"), file);
        const auto lines = [&](const QStringList &args) { return decode(args + QStringList{dir.filePath("c.pcapng")}).out; };
        QCOMPARE(lines({"--mode", "232"}), QString("0040 : 41 42\n"));
        const QString all = lines({});
        QCOMPARE(all.count('\n'), 3 * 2 + 1); // each MDB line has its explanation row
        QCOMPARE(lines({"--no-translate"}).count('\n'), 4);
        QCOMPARE(lines({"--hide", "poll"}), QString("0040 : 41 42\n")); // the POLLs and the ACK that answers one
        QCOMPARE(lines({"--hide", "poll", "--show", "poll"}), all);
        QVERIFY(lines({"--html"}).startsWith("<span style='color: green;'>0010 : M-> 0B 0B<br>"));
        QCOMPARE(decode({"--wireshark", dir.filePath("mdb.pcap"), dir.filePath("c.pcapng")}).code, 0);
        QVERIFY(QFileInfo(dir.filePath("mdb.pcap")).size() > 24);
        QVERIFY(decode({"--version"}).out.contains(QRegularExpression("^vendscope-decode \\d+\\.\\d+\\.\\d+\n$")));

        // A machine without a display can run it: Qt Core only.
        QProcess ldd;
        ldd.start("ldd", {VS_DECODE});
        QVERIFY(ldd.waitForFinished());
        const QString libs = ldd.readAllStandardOutput();
        QVERIFY2(libs.contains("libQt6Core") && !libs.contains("libQt6Gui") && !libs.contains("libQt6Widgets"), qPrintable(libs));
    }
};

QTEST_MAIN(TestDecode)
#include "tst_decode.moc"
