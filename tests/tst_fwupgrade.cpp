// The boot-loader exchange fed chunk by chunk with the port on a pseudo-terminal, then the whole upgrade through the
// main window, a boot loader on the far side.
#include "testsupport.h"

#include "update/downloader.h"
#include "update/fwupgrade.h"

// Image bytes whose period does not divide the packet size, so a packet cut from the wrong place shows.
static QByteArray image(int size)
{
    QByteArray d(size, 0);
    for (int i = 0; i < size; ++i)
        d[i] = char(i % 251);
    return d;
}

static QByteArray packet(int sequence, const QByteArray &body, quint16 crc)
{
    return QByteArray(1, 0x02) + char(sequence >> 8) + char(sequence & 0xFF) + body + char(crc >> 8) + char(crc & 0xFF);
}

// INI for a 1000-byte image in two packets: chunk 768, total 2, version 1.0.
static const QByteArray twoPacketIni = hx("5550000003000002000003e8312e3000");
static const QByteArray iniPacket = packet(0, twoPacketIni, 0xB97E);
static const QByteArray packet1of2 = packet(1, image(768), 0x9FE3);
static const QByteArray abcFrame = hx("7E2409") + "163616"; // shows abc
// The box up to its answer to the INI packet, noise before the token included.
static const QByteArray opening = hx("0055E916") + abcFrame + hx("06");

// Files (no INI: none chosen, a null DAT: removed once chosen), bytes from and to the box, label, state, bar values.
struct Exchange
{
    QByteArray ini, dat;
    QByteArrayList fromBox;
    QByteArray toBox;
    QString label;
    int state;
    QList<QVariantList> progress{};
    bool oddNibble = false;
};
Q_DECLARE_METATYPE(Exchange)

// An INI_<version>.bin and DAT_<version>.bin pair in a folder, made if missing.
static bool writeFirmware(const QString &dir, const QByteArray &ini, const QByteArray &dat, const QString &version = "t")
{
    QFile i(dir + "/INI_" + version + ".bin"), d(dir + "/DAT_" + version + ".bin");
    return QDir().mkpath(dir) && i.open(QIODevice::WriteOnly) && d.open(QIODevice::WriteOnly) && i.write(ini) == ini.size()
        && d.write(dat) == dat.size();
}

struct Rig
{
    Pty pty;
    QSerialPort port;
    QDialog dialog;
    Ui::DialogFirmware form;
    FWUpgrade fw{&port, &form};
    QTemporaryDir dir;
    MessageLog log;

    Rig()
    {
        form.setupUi(&dialog);
        port.setPortName(pty.slavePath());
        if (!port.open(QIODevice::ReadWrite))
            qFatal("cannot open the pseudo-terminal");
    }
    bool files(const QByteArray &ini, const QByteArray &dat)
    {
        return writeFirmware(dir.path(), ini, dat) && fw.openFirmware(dir.path());
    }
    QString label() const { return form.labelStatus->text(); }
};

class TestFwUpgrade : public QObject
{
    Q_OBJECT
private slots:
    void init() { writeSettingsIni(); }
    void cleanupTestCase() { removeSettingsIni(); } // the firmware folder is this test's own

    // INI_x goes with DAT_x only, in a folder that exists; anything else is "File not found".
    void openFirmware()
    {
        Rig r;
        const auto add = [&](const char *name) { return QFile(r.dir.filePath(name)).open(QIODevice::WriteOnly); };
        QVERIFY(!r.fw.openFirmware(r.dir.filePath("none")));
        QVERIFY(add("README") && add("INI_v2.1.bin") && add("DAT_v2.0.bin"));
        QVERIFY(!r.fw.openFirmware(r.dir.path()));
        QVERIFY(QFile::remove(r.dir.filePath("DAT_v2.0.bin")) && add("dat_v2.1.bin")); // the prefix is upper-case
        QVERIFY(!r.fw.openFirmware(r.dir.path()));
        QCOMPARE(r.label(), QString("File not found"));
        QVERIFY(!r.fw.upgradeCondition());
        QVERIFY(add("DAT_v2.1.bin") && r.fw.openFirmware(r.dir.path()));
        QCOMPARE(r.label(), QString("File ok"));
        QVERIFY(r.fw.upgradeCondition());
    }

    void exchange_data()
    {
        QTest::addColumn<Exchange>("x");
        const auto row = [](const char *name, const Exchange &x) { QTest::newRow(name) << x; };
        const int token = FWUpgrade::Rx_Token, ini = FWUpgrade::Rx_INI, data = FWUpgrade::Rx_Data;
        const QByteArray two = twoPacketIni, dat = image(1000), echoed = hx("E9") + "abc";
        row("without image files the upgrade token is dropped, the log shown and echoed",
            {{}, {}, {hx("1608") + abcFrame}, hx("F7") + "abc", "abc", token});
        row("repeated token dropped, frame split in two taken at its last byte, high half second",
            {two, dat, {hx("16167E240541"), hx("42")}, hx("E9BA"), "\uFFFD", ini});
        row("length byte below the header dropped; odd character count warns and pads",
            {two, dat, {hx("167E2402"), hx("7E2406") + "163"}, hx("E961D2"), "a\uFFFD", ini, {}, true});
        // An answer naming another packet is passed over.
        const QByteArray box = opening + hx("060000" "060002" "060001" "060002");
        const QByteArray flashed = echoed + iniPacket + packet1of2 + packet(2, dat.mid(768), 0x2EEC);
        const QList<QVariantList> halves{{0}, {50}, {100}};
        QByteArrayList oneByOne;
        for (const char b : box)
            oneByOne << QByteArray(1, b);
        row("1000-byte image, two packets, in one chunk", {two, dat, {box}, flashed, "Upgrade end", token, halves});
        row("1000-byte image, two packets, byte by byte", {two, dat, oneByOne, flashed, "Upgrade end", token, halves});
        row("rejection of the awaited packet ends without a resend, of another is ignored", {two, dat,
            {opening + hx("060000" "150002" "060001" "150002")}, flashed, "Upgrade was rejected", token, halves});
        const QByteArray oneIni = hx("555000000300000100000003312e3100");
        row("abc as packet 1 of 1 is 02 00 01 61 62 63 60 22", {oneIni, "abc", {opening + hx("060000")},
            echoed + packet(0, oneIni, 0xBE18) + hx("0200016162636022"), "Sequence : 1", data, {{0}, {100}}});
        const QByteArray emptyIni = hx("555000000300000000000000302e3900");
        row("total of 0 ends at the first answer", {emptyIni, dat, {opening + hx("060000")},
                                                    echoed + packet(0, emptyIni, 0x44F4), "Upgrade end", token, {{0}}});
        row("INI without its mark resets", {hx("58590000030000010000000031"), dat, {opening}, echoed, "abc", token});
        row("INI of 11 bytes resets", {hx("5550000003000001000000"), dat, {opening}, echoed, "abc", token});
        const QByteArray noEnd = hx("785000000010000100000000322e35");
        row("the P of the mark alone is enough, a version without an end shows the rest",
            {noEnd, dat, {opening}, echoed + packet(0, noEnd, 0xF846), "V : 2.5 Chunk : 16 Total : 1 ", data, {{0}}});
        row("DAT file gone at the first packet resets",
            {two, {}, {opening + hx("060000")}, echoed + iniPacket, "V : 1.0 Chunk : 768 Total : 2 ", token, {{0}}});
    }
    void exchange()
    {
        QFETCH(Exchange, x);
        Rig r;
        if (!x.ini.isEmpty())
            QVERIFY(r.files(x.ini, x.dat) && (!x.dat.isNull() || QFile::remove(r.fw.datPath)));
        r.form.progressBar->setValue(7); // so that setting 0 shows
        QSignalSpy ended(&r.fw, &FWUpgrade::upgradeEnd);
        QSignalSpy bar(r.form.progressBar, &QProgressBar::valueChanged);
        r.fw.upgradeRunning = true;
        for (const QByteArray &chunk : x.fromBox)
            r.fw.upgradeHandling(chunk);
        QCOMPARE(r.pty.readAtLeast(int(x.toBox.size())), x.toBox);
        QCOMPARE(r.pty.readAtLeast(1, 150), QByteArray());
        QCOMPARE(r.label(), x.label);
        QCOMPARE(int(r.fw.rxState), x.state);
        QCOMPARE(QList<QVariantList>(bar), x.progress);
        const bool end = x.label == "Upgrade end";
        QCOMPARE(ended.count(), end ? 1 : 0);
        QCOMPARE(r.fw.upgradeRunning, !end);
        // Nothing sent is left waiting for an answer once back at the token.
        QVERIFY(x.state != FWUpgrade::Rx_Token || !r.fw.responseTimer.isActive());
        QCOMPARE(r.log.contains("Warning: Nibble array size is odd!"), x.oddNibble);
    }

    // A silent box: the token's answer, then a DAT packet, each sent four times before a reset.
    void answerTimeouts()
    {
        Rig r;
        QVERIFY(r.files(twoPacketIni, image(1000)));
        r.fw.responseTimeoutMs = 150; // the same path as the 5 s of the box, sooner
        const auto reset = [&] { return r.fw.rxState == FWUpgrade::Rx_Token && !r.fw.responseTimer.isActive(); };
        r.fw.upgradeHandling(hx("16"));
        QVERIFY(waitUntil(reset, 20000));
        QCOMPARE(r.label(), QString("Response Timeout 3 sequence 0"));
        r.fw.upgradeHandling(opening + hx("060000"));
        QVERIFY(waitUntil(reset, 20000));
        QCOMPARE(r.label(), QString("Response Timeout 3 sequence 1"));
        const QByteArray sent = hx("E9E9E9E9E9") + "abc" + iniPacket + packet1of2.repeated(4);
        QCOMPARE(r.pty.readAtLeast(int(sent.size())), sent);
        QCOMPARE(r.pty.readAtLeast(1, 150), QByteArray());
    }

    // The simulator asks for firmware; its boot loader takes the image or fails where the row says.
    void upgrade_data()
    {
        QTest::addColumn<QStringList>("faults");
        QTest::addColumn<QString>("label");
        QTest::addColumn<int>("imageBytes"); // received by the boot loader
        QTest::newRow("whole image flashed, then back to monitoring") << QStringList() << "Upgrade end" << 3000;
        QTest::newRow("rejected packet stops the upgrade") << QStringList{"--boot-reject-at", "2"} << "Upgrade was rejected" << 768;
        QTest::newRow("silent boot loader: resends, then reset")
            << QStringList{"--boot-silent-at", "3"} << "Response Timeout 3 sequence 3" << 1536;
    }
    void upgrade()
    {
#ifndef VS_BOXSIM
        QSKIP("the box simulator is not built");
#else
        QFETCH(QStringList, faults);
        QFETCH(QString, label);
        QFETCH(int, imageBytes);
        const bool ok = label == "Upgrade end";
        // 3000 bytes in four packets of 768, the last of 696 so that a misplaced cut shows; UP, chunk, total, size.
        const QString dir = Downloader::firmwareDir();
        QDir(dir).removeRecursively();
        QVERIFY(writeFirmware(dir, hx("555000000300000400000BB8") + QByteArray("2.0.1", 6), image(3000), "2.0.1"));
        // The image goes to a file without the INI or DAT prefix, so the program passes it over.
        BoxSim sim(QStringList{"--request-firmware", "--verbose", "--image-out", dir + "/received.bin"} + faults);
        MainWindow w;
        w.fwUpgrade->responseTimeoutMs = 300; // the answer timer's path, sooner
        connectTo(w, sim.path);
        QVERIFY(waitUntil([&] { return w.firmwareUi->labelStatus->text() == label; }, 30000));
        QFile received(dir + "/received.bin");
        QVERIFY(waitUntil([&] { return received.size() == imageBytes; }, 10000));
        QVERIFY(received.open(QIODevice::ReadOnly));
        QCOMPARE(received.readAll(), image(imageBytes));
        QCOMPARE(w.firmwareUi->progressBar->value() == 100, ok);
        // Failed, the stall timer hands the port back; only an ended upgrade tells the box its mode again.
        QVERIFY(waitUntil([&] { return !w.fwUpgrade->upgradeRunning; }, 10000));
        QByteArray heard; // what the box was told, one line a command
        QCOMPARE(waitUntil([&] { return (heard += sim.proc.readAllStandardError()).count("modeSet") == 2; }, ok ? 10000 : 1000), ok);
        w.ui->actionClear->trigger();
        QCOMPARE(waitUntil([&] { return w.ui->textBrowserParsed->toPlainText().contains("POLL"); }, ok ? 10000 : 500), ok);
#endif
    }
};

QTEST_MAIN(TestFwUpgrade)
#include "tst_fwupgrade.moc"
