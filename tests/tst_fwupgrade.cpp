// The boot-loader exchange fed chunk by chunk, with the port on a pseudo-terminal.
#include "testsupport.h"

#include "ui_dialogfirmware.h"
#include "update/fwupgrade.h"

#include <QDialog>
#include <QSerialPort>
#include <QTemporaryDir>

using Chunks = QList<QByteArray>;

// Image bytes whose period does not divide the packet size, so a packet cut
// from the wrong place shows.
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

static Chunks bytewise(const QByteArray &bytes)
{
    Chunks c;
    for (const char b : bytes)
        c << QByteArray(1, b);
    return c;
}

// INI for a 1000-byte image in two packets: chunk 768, total 2, version 1.0.
static const QByteArray twoPacketIni = hexBytes("5550000003000002000003e8312e3000");
static const QByteArray twoPacketIniPacket = packet(0, twoPacketIni, 0xB97E);
static const QByteArray packet1of2 = packet(1, image(768), 0x9FE3);
static const QByteArray packet2of2 = packet(2, image(1000).mid(768), 0x2EEC);
static const QByteArray abcFrame = hexBytes("7E2409") + "163616"; // shows abc
// The box up to its answer to the INI packet, noise before the token included.
static const QByteArray opening = hexBytes("0055E916") + abcFrame + hexBytes("06");
static const QByteArray gone; // a null DAT: the file is removed once chosen

// One exchange: the image files, what the box sends and what it should get back.
struct Exchange
{
    QByteArray ini, dat; // ini empty: no image files chosen
    Chunks fromBox;
    QByteArray toBox;
    QString label;
    int state;
    QList<int> progress{}; // the bar's values after it was set to 7
    QStringList messages{};
};
Q_DECLARE_METATYPE(Exchange)

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
        for (const auto &[name, bytes] : {std::pair{"/INI_t.bin", ini}, std::pair{"/DAT_t.bin", dat}}) {
            QFile f(dir.path() + name);
            if (!f.open(QIODevice::WriteOnly) || f.write(bytes) != bytes.size())
                return false;
        }
        return fw.openFirmware(dir.path());
    }
    QString label() const { return form.labelStatus->text(); }
};

class TestFwUpgrade : public QObject
{
    Q_OBJECT
private slots:
    void crc()
    {
        const auto crc = [](const QByteArray &d) {
            return int(Cal_CRC16(reinterpret_cast<const unsigned char *>(d.constData()), unsigned(d.size())));
        };
        QCOMPARE(crc("123456789"), 0x31C3);
        QCOMPARE(crc("abc"), 0x9DD6);
        QCOMPARE(crc(hexBytes("0200016162636022")), 0x0000); // a packet followed by its own CRC
    }

    void openFirmware_data()
    {
        QTest::addColumn<QStringList>("names"); // none: the folder is missing
        QTest::addColumn<bool>("ok");
        QTest::newRow("matching pair among other files accepted")
            << QStringList{"README", "INI_v2.1.bin", "notes.txt", "DAT_v2.1.bin"} << true;
        QTest::newRow("names that differ after the prefix refused") << QStringList{"INI_a", "DAT_b"} << false;
        QTest::newRow("INI file alone refused, lower-case dat is no prefix") << QStringList{"INI_a", "dat_a"} << false;
        QTest::newRow("DAT file alone refused, lower-case ini is no prefix") << QStringList{"ini_a", "DAT_a"} << false;
        QTest::newRow("missing folder refused") << QStringList{} << false;
    }
    void openFirmware()
    {
        QFETCH(QStringList, names);
        QFETCH(bool, ok);
        Rig r;
        for (const QString &name : names)
            QVERIFY(QFile(r.dir.path() + "/" + name).open(QIODevice::WriteOnly));
        r.form.labelStatus->setText("before");
        QCOMPARE(r.fw.openFirmware(names.isEmpty() ? r.dir.path() + "/none" : r.dir.path()), ok);
        QCOMPARE(r.label(), ok ? QString("File ok") : QString("File not found"));
        QCOMPARE(r.fw.upgradeCondition(), ok);
    }

    void exchange_data()
    {
        QTest::addColumn<Exchange>("x");
        using F = FWUpgrade;
        const int token = F::Rx_Token, up = F::Rx_UP, ini = F::Rx_INI, data = F::Rx_Data;
        const QByteArray two = twoPacketIni, dat = image(1000), echoed = hexBytes("E9") + "abc";
        const QByteArray opened = echoed + twoPacketIniPacket;
        QTest::newRow("without image files the upgrade token is dropped, the log shown and echoed")
            << Exchange{{}, {}, {hexBytes("1608") + abcFrame}, hexBytes("F7") + "abc", "abc", token};
        QTest::newRow("repeated token dropped, frame split in two taken at its last byte, high half second")
            << Exchange{two, dat, {hexBytes("16167E240541"), hexBytes("42")}, hexBytes("E9BA"), "\uFFFD", ini};
        QTest::newRow("frame behind a repeated token waits for the next chunk")
            << Exchange{two, dat, {hexBytes("16167E24054142")}, hexBytes("E9"), "File ok", up};
        QTest::newRow("length byte below the header dropped; odd character count warns and pads")
            << Exchange{two, dat, {hexBytes("167E2402"), hexBytes("7E2406") + "163"}, hexBytes("E961D2"), "a\uFFFD",
                        ini, {}, {"text frame length below its header: 2", "Warning: Nibble array size is odd!"}};
        // An answer naming another packet is passed over.
        const QByteArray box = opening + hexBytes("060000" "060002" "060001" "060002");
        const QByteArray flashed = opened + packet1of2 + packet2of2;
        QTest::newRow("1000-byte image in two packets, in one chunk")
            << Exchange{two, dat, {box}, flashed, "Upgrade end", token, {0, 50, 100}};
        QTest::newRow("1000-byte image in two packets, byte by byte")
            << Exchange{two, dat, bytewise(box), flashed, "Upgrade end", token, {0, 50, 100}};
        QTest::newRow("rejection of the awaited packet ends without a resend, of another is ignored")
            << Exchange{two, dat, {opening + hexBytes("060000" "150002" "060001" "150002")}, flashed,
                        "Upgrade was rejected", token, {0, 50, 100}};
        const QByteArray oneIni = hexBytes("555000000300000100000003312e3100");
        QTest::newRow("worked packet example: abc as packet 1 of 1")
            << Exchange{oneIni, "abc", {opening + hexBytes("060000")},
                        echoed + packet(0, oneIni, 0xBE18) + hexBytes("0200016162636022"), "Sequence : 1", data,
                        {0, 100}};
        const QByteArray emptyIni = hexBytes("555000000300000000000000302e3900");
        QTest::newRow("total of 0 ends at the first answer")
            << Exchange{emptyIni, dat, {opening + hexBytes("060000")}, echoed + packet(0, emptyIni, 0x44F4),
                        "Upgrade end", token, {0}};
        QTest::newRow("INI without its mark resets")
            << Exchange{hexBytes("58590000030000010000000031"), dat, {opening}, echoed, "abc", token};
        QTest::newRow("INI of 11 bytes resets with a message")
            << Exchange{hexBytes("5550000003000001000000"), dat, {opening}, echoed, "abc", token, {},
                        {"INI file too short: 11"}};
        const QByteArray noEnd = hexBytes("785000000010000100000000322e35");
        QTest::newRow("the P of the mark alone is enough, a version without an end shows the rest")
            << Exchange{noEnd, dat, {opening}, echoed + packet(0, noEnd, 0xF846), "V : 2.5 Chunk : 16 Total : 1 ", data,
                        {0}, {"INI version text has no end mark"}};
        QTest::newRow("DAT file gone at the first packet resets")
            << Exchange{two, gone, {opening + hexBytes("060000")}, opened, "V : 1.0 Chunk : 768 Total : 2 ", token, {0},
                        {"cannot open"}};
    }
    void exchange()
    {
        QFETCH(Exchange, x);
        Rig r;
        if (!x.ini.isEmpty())
            QVERIFY(r.files(x.ini, x.dat) && (!x.dat.isNull() || QFile::remove(r.fw.datPath)));
        r.form.progressBar->setValue(7);
        QSignalSpy ended(&r.fw, &FWUpgrade::upgradeEnd);
        QSignalSpy bar(r.form.progressBar, &QProgressBar::valueChanged);
        r.fw.upgradeRunning = true;
        for (const QByteArray &chunk : x.fromBox)
            r.fw.upgradeHandling(chunk);
        QCOMPARE(r.pty.readAtLeast(int(x.toBox.size())), x.toBox);
        QCOMPARE(r.pty.readAtLeast(1, 150), QByteArray());
        QCOMPARE(r.label(), x.label);
        QCOMPARE(int(r.fw.rxState), x.state);
        QList<int> values;
        for (const auto &args : bar)
            values << args.at(0).toInt();
        QCOMPARE(values, x.progress);
        const bool end = x.label == "Upgrade end";
        QCOMPARE(ended.count(), end ? 1 : 0);
        QCOMPARE(r.fw.upgradeRunning, !end);
        QVERIFY(!end || !r.fw.stallTimer->isActive());
        // Nothing sent is left waiting for an answer once back at the token.
        QVERIFY(x.state != FWUpgrade::Rx_Token || !r.fw.responseTimer.isActive());
        for (const QString &m : x.messages)
            QVERIFY2(r.log.contains(m), qPrintable(r.log.messages().join('\n')));
    }

    // A silent box: the token's answer, then a DAT packet, each sent four times before a reset.
    void answerTimeouts()
    {
        Rig r;
        QVERIFY(r.files(twoPacketIni, image(1000)));
        r.fw.responseTimeoutMs = 150; // the same path as the 5 s of the box, sooner
        QStringList seen;
        const auto resets = [&] {
            return waitUntil([&] {
                if (r.label().startsWith("Response") && !seen.contains(r.label()))
                    seen << r.label();
                return r.fw.rxState == FWUpgrade::Rx_Token && !r.fw.responseTimer.isActive();
            });
        };
        r.fw.upgradeHandling(hexBytes("16"));
        QVERIFY(resets());
        r.fw.upgradeHandling(opening + hexBytes("060000"));
        QVERIFY(resets());
        QCOMPARE(seen, (QStringList{"Response Timeout 1 sequence 0", "Response Timeout 2 sequence 0",
                                    "Response Timeout 3 sequence 0", "Response Timeout 1 sequence 1",
                                    "Response Timeout 2 sequence 1", "Response Timeout 3 sequence 1"}));
        const QByteArray e9 = hexBytes("E9"), p1 = packet1of2;
        const QByteArray sent = e9 + e9 + e9 + e9 + e9 + "abc" + twoPacketIniPacket + p1 + p1 + p1 + p1;
        QCOMPARE(r.pty.readAtLeast(int(sent.size())), sent);
        QCOMPARE(r.pty.readAtLeast(1, 150), QByteArray());
        QVERIFY(r.log.contains("resent answer carries no sequence number: E9"));
    }
};

QTEST_MAIN(TestFwUpgrade)
#include "tst_fwupgrade.moc"
