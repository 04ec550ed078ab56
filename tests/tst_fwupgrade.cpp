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

// INI for a 1000-byte image in two packets: chunk 768, total 2, version 1.0.
static const QByteArray twoPacketIni = hexBytes("5550000003000002000003e8312e3000");
static const QByteArray twoPacketIniPacket = packet(0, twoPacketIni, 0xB97E);
static const QByteArray packet1of2 = packet(1, image(768), 0x9FE3);
static const QByteArray packet2of2 = packet(2, image(1000).mid(768), 0x2EEC);
static const QByteArray abcFrame = hexBytes("7E2409") + "163616"; // shows abc

struct Rig
{
    Pty pty;
    QSerialPort port;
    QDialog dialog;
    Ui::DialogFirmware form;
    FWUpgrade fw{&port, &form};
    QTemporaryDir dir;

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
    QByteArray wire(int atLeast) { return atLeast ? pty.readAtLeast(atLeast) : nothingMore(); }
    QByteArray nothingMore() { return pty.readAtLeast(1, 150); }
};

class TestFwUpgrade : public QObject
{
    Q_OBJECT
private slots:
    void crc_data();
    void crc();
    void datPacketExample();
    void openFirmware_data();
    void openFirmware();
    void tokens_data();
    void tokens();
    void textFrames_data();
    void textFrames();
    void packetAnswers_data();
    void packetAnswers();
    void wholeUpgrade_data();
    void wholeUpgrade();
    void hostileFiles_data();
    void hostileFiles();
    void answerTimeouts_data();
    void answerTimeouts();
};

void TestFwUpgrade::crc_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<int>("crc");
    QTest::newRow("check value of the digits 1 to 9") << QByteArray("123456789") << 0x31C3;
    QTest::newRow("three letters") << QByteArray("abc") << 0x9DD6;
    QTest::newRow("nothing gives zero") << QByteArray() << 0x0000;
    QTest::newRow("a packet followed by its own CRC gives zero") << hexBytes("0200016162636022") << 0x0000;
}

void TestFwUpgrade::crc()
{
    QFETCH(QByteArray, data);
    QFETCH(int, crc);
    QCOMPARE(int(Cal_CRC16(reinterpret_cast<const unsigned char *>(data.constData()), unsigned(data.size()))), crc);
}

void TestFwUpgrade::datPacketExample()
{
    Rig r;
    QVERIFY(r.files(hexBytes("555000000300000100000003312e3100"), "abc"));
    r.fw.rxStateTrans(FWUpgrade::Rx_INI);
    r.fw.upgradeHandling(hexBytes("06"));
    r.fw.upgradeHandling(hexBytes("060000"));
    const QByteArray ini = packet(0, hexBytes("555000000300000100000003312e3100"), 0xBE18);
    QCOMPARE(r.wire(ini.size() + 8), ini + hexBytes("0200016162636022"));
    QCOMPARE(r.label(), QString("Sequence : 1"));
    QCOMPARE(r.form.progressBar->value(), 100);
}

void TestFwUpgrade::openFirmware_data()
{
    QTest::addColumn<QString>("where");
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<bool>("ok");
    QTest::newRow("matching pair accepted") << "dir" << QStringList{"INI_a", "DAT_a"} << true;
    QTest::newRow("names that differ after the prefix refused") << "dir" << QStringList{"INI_a", "DAT_b"} << false;
    QTest::newRow("INI file alone refused") << "dir" << QStringList{"INI_v2.1.bin"} << false;
    QTest::newRow("lower-case prefixes are not image files") << "dir" << QStringList{"ini_a", "dat_a"} << false;
    QTest::newRow("other files beside the pair ignored")
        << "dir" << QStringList{"README", "INI_v2.1.bin", "notes.txt", "DAT_v2.1.bin"} << true;
    QTest::newRow("missing folder refused") << "missing" << QStringList{} << false;
    QTest::newRow("empty path refused") << "empty" << QStringList{} << false;
}

void TestFwUpgrade::openFirmware()
{
    QFETCH(QString, where);
    QFETCH(QStringList, names);
    QFETCH(bool, ok);
    Rig r;
    for (const QString &name : names) {
        QFile f(r.dir.path() + "/" + name);
        QVERIFY(f.open(QIODevice::WriteOnly));
    }
    const QString path = where == "dir" ? r.dir.path() : where == "missing" ? r.dir.path() + "/none" : QString();
    r.form.labelStatus->setText("before");
    QCOMPARE(r.fw.openFirmware(path), ok);
    QCOMPARE(r.label(), ok ? QString("File ok") : QString("File not found"));
    QCOMPARE(r.fw.upgradeCondition(), ok);
}

void TestFwUpgrade::tokens_data()
{
    QTest::addColumn<bool>("opened");
    QTest::addColumn<QByteArray>("in");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<int>("state");
    QTest::newRow("upgrade token before the image files are chosen dropped")
        << false << hexBytes("16") << QByteArray() << int(FWUpgrade::Rx_Token);
    QTest::newRow("upgrade token answered with its complement")
        << true << hexBytes("16") << hexBytes("E9") << int(FWUpgrade::Rx_UP);
    QTest::newRow("log token answered without image files")
        << false << hexBytes("08") << hexBytes("F7") << int(FWUpgrade::Rx_Log);
    QTest::newRow("noise before the token dropped")
        << true << hexBytes("0055E916") << hexBytes("E9") << int(FWUpgrade::Rx_UP);
}

void TestFwUpgrade::tokens()
{
    QFETCH(bool, opened);
    QFETCH(QByteArray, in);
    QFETCH(QByteArray, out);
    QFETCH(int, state);
    Rig r;
    if (opened)
        QVERIFY(r.files(twoPacketIni, image(1000)));
    r.fw.upgradeHandling(in);
    QCOMPARE(r.wire(out.size()), out);
    QCOMPARE(int(r.fw.rxState), state);
    QCOMPARE(r.fw.responseTimer.isActive(), !out.isEmpty()); // an answer waits for the next step
}

void TestFwUpgrade::textFrames_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<Chunks>("chunks");
    QTest::addColumn<Chunks>("echoes");
    QTest::addColumn<QString>("label");
    QTest::addColumn<int>("endState");
    QTest::addColumn<QString>("message");
    const int up = FWUpgrade::Rx_UP;
    const int ini = FWUpgrade::Rx_INI;
    QTest::newRow("version text shown and echoed")
        << up << Chunks{abcFrame} << Chunks{"abc"} << "abc" << ini << "len 9";
    QTest::newRow("second character of a pair is the high half")
        << up << Chunks{hexBytes("7E24054142")} << Chunks{hexBytes("BA")} << QString(QChar(0xFFFD)) << ini << "";
    QTest::newRow("frame in two chunks taken at its last byte")
        << up << Chunks{hexBytes("7E240541"), hexBytes("42")} << Chunks{"", hexBytes("BA")} << QString(QChar(0xFFFD))
        << ini << "";
    QTest::newRow("repeated token before the frame waits for the next chunk")
        << up << Chunks{hexBytes("167E24054142"), hexBytes("00")} << Chunks{"", hexBytes("BA")}
        << QString(QChar(0xFFFD)) << ini << "";
    QTest::newRow("odd character count warns and pads")
        << up << Chunks{hexBytes("7E2406") + "163"} << Chunks{hexBytes("61D2")} << QString("a\uFFFD") << ini
        << "Warning: Nibble array size is odd!";
    QTest::newRow("log text returns to the token state")
        << int(FWUpgrade::Rx_Log) << Chunks{abcFrame} << Chunks{"abc"} << "abc" << int(FWUpgrade::Rx_Token) << "";
    QTest::newRow("length byte below the header dropped")
        << up << Chunks{hexBytes("7E24024142")} << Chunks{""} << "File ok" << up
        << "text frame length below its header: 2";
}

void TestFwUpgrade::textFrames()
{
    QFETCH(int, state);
    QFETCH(Chunks, chunks);
    QFETCH(Chunks, echoes);
    QFETCH(QString, label);
    QFETCH(int, endState);
    QFETCH(QString, message);
    MessageLog log;
    Rig r;
    QVERIFY(r.files(twoPacketIni, image(1000)));
    r.fw.rxStateTrans(FWUpgrade::RxState(state));
    for (int i = 0; i < chunks.size(); ++i) {
        r.fw.upgradeHandling(chunks[i]);
        QCOMPARE(r.wire(echoes[i].size()), echoes[i]);
    }
    QCOMPARE(r.label(), label);
    QCOMPARE(int(r.fw.rxState), endState);
    if (endState == FWUpgrade::Rx_Token)
        QVERIFY(!r.fw.responseTimer.isActive()); // the log's echo awaits nothing
    if (!message.isEmpty())
        QVERIFY2(log.contains(message), qPrintable(log.messages().join('\n')));
}

void TestFwUpgrade::packetAnswers_data()
{
    QTest::addColumn<int>("sequence");
    QTest::addColumn<Chunks>("chunks");
    QTest::addColumn<Chunks>("sent");
    QTest::addColumn<QString>("label");
    QTest::addColumn<int>("endState");
    const QByteArray packet5 = packet(5, image(3840).mid(3072), 0x87C0);
    const int data = FWUpgrade::Rx_Data;
    QTest::newRow("answer for another packet passed over")
        << 4 << Chunks{hexBytes("060005"), hexBytes("060004")} << Chunks{"", packet5} << "Sequence : 5" << data;
    QTest::newRow("answer split after its token waits for the number")
        << 4 << Chunks{hexBytes("06"), hexBytes("0004")} << Chunks{"", packet5} << "Sequence : 5" << data;
    QTest::newRow("rejection ends without a resend")
        << 1 << Chunks{hexBytes("150001")} << Chunks{""} << "Upgrade was rejected" << int(FWUpgrade::Rx_Token);
    QTest::newRow("rejection naming another packet ignored")
        << 1 << Chunks{hexBytes("150002")} << Chunks{""} << "File ok" << data;
    QTest::newRow("answer to the last packet ends the upgrade")
        << 5 << Chunks{hexBytes("060005")} << Chunks{""} << "Upgrade end" << int(FWUpgrade::Rx_Token);
}

void TestFwUpgrade::packetAnswers()
{
    QFETCH(int, sequence);
    QFETCH(Chunks, chunks);
    QFETCH(Chunks, sent);
    QFETCH(QString, label);
    QFETCH(int, endState);
    Rig r;
    QVERIFY(r.files(hexBytes("555000000300000500000F00312e3000"), image(3840)));
    r.fw.rxStateTrans(FWUpgrade::Rx_Data);
    r.fw.total = 5;
    r.fw.sequence = quint16(sequence);
    r.fw.upgradeRunning = true;
    QSignalSpy ended(&r.fw, &FWUpgrade::upgradeEnd);
    for (int i = 0; i < chunks.size(); ++i) {
        r.fw.upgradeHandling(chunks[i]);
        QCOMPARE(r.wire(sent[i].size()), sent[i]);
    }
    QCOMPARE(r.nothingMore(), QByteArray());
    QCOMPARE(r.label(), label);
    QCOMPARE(int(r.fw.rxState), endState);
    const bool end = label == "Upgrade end";
    QCOMPARE(ended.count(), end ? 1 : 0);
    QCOMPARE(r.fw.upgradeRunning, !end);
    if (endState == FWUpgrade::Rx_Token)
        QVERIFY(!r.fw.responseTimer.isActive());
}

void TestFwUpgrade::wholeUpgrade_data()
{
    QTest::addColumn<QByteArray>("ini");
    QTest::addColumn<int>("piece");
    QTest::addColumn<QByteArray>("fromBox");
    QTest::addColumn<QByteArray>("toBox");
    QTest::addColumn<QList<int>>("progress");
    const QByteArray box = hexBytes("16") + abcFrame + hexBytes("06" "060000" "060001" "060002");
    const QByteArray tool = hexBytes("E9") + "abc" + twoPacketIniPacket + packet1of2 + packet2of2;
    QTest::newRow("1000-byte image in one chunk") << twoPacketIni << 1000 << box << tool << QList<int>{50, 100};
    QTest::newRow("1000-byte image byte by byte") << twoPacketIni << 1 << box << tool << QList<int>{50, 100};
    QTest::newRow("1000-byte image in chunks of five") << twoPacketIni << 5 << box << tool << QList<int>{50, 100};
    const QByteArray emptyIni = hexBytes("555000000300000000000000302e3900");
    QTest::newRow("total of 0 ends at the first answer")
        << emptyIni << 1000 << hexBytes("16") + abcFrame + hexBytes("06060000")
        << hexBytes("E9") + "abc" + packet(0, emptyIni, 0x44F4) << QList<int>{};
}

void TestFwUpgrade::wholeUpgrade()
{
    QFETCH(QByteArray, ini);
    QFETCH(int, piece);
    QFETCH(QByteArray, fromBox);
    QFETCH(QByteArray, toBox);
    QFETCH(QList<int>, progress);
    Rig r;
    QVERIFY(r.files(ini, image(1000)));
    r.form.progressBar->setValue(7);
    QSignalSpy ended(&r.fw, &FWUpgrade::upgradeEnd);
    QSignalSpy bar(r.form.progressBar, &QProgressBar::valueChanged);
    r.fw.upgradeRunning = true;
    r.fw.stallTimer->start();
    for (int at = 0; at < fromBox.size(); at += piece)
        r.fw.upgradeHandling(fromBox.mid(at, piece));
    QCOMPARE(r.wire(toBox.size()), toBox);
    QCOMPARE(r.nothingMore(), QByteArray());
    QCOMPARE(r.label(), QString("Upgrade end"));
    QCOMPARE(ended.count(), 1);
    QList<int> values;
    for (const auto &args : bar)
        values << args.at(0).toInt();
    QCOMPARE(values, QList<int>{0} + progress);
    QCOMPARE(int(r.fw.rxState), int(FWUpgrade::Rx_Token));
    QVERIFY(!r.fw.upgradeRunning);
    QVERIFY(!r.fw.stallTimer->isActive());
    QVERIFY(!r.fw.responseTimer.isActive());
}

void TestFwUpgrade::hostileFiles_data()
{
    QTest::addColumn<QByteArray>("ini");
    QTest::addColumn<bool>("removeDat");
    QTest::addColumn<QByteArray>("toBox");
    QTest::addColumn<QString>("label");
    QTest::addColumn<int>("state");
    QTest::addColumn<QString>("message");
    const QByteArray noEnd = hexBytes("555000000300000100000000322e35");
    const QByteArray onlyP = hexBytes("7850000000100001000000003700");
    QTest::newRow("INI without its mark resets")
        << hexBytes("58590000030000010000000031") << false << QByteArray() << "abc" << int(FWUpgrade::Rx_Token) << "";
    QTest::newRow("INI of 11 bytes resets with a message")
        << hexBytes("5550000003000001000000") << false << QByteArray() << "abc" << int(FWUpgrade::Rx_Token)
        << "INI file too short: 11";
    QTest::newRow("version without an end shows the rest of the file")
        << noEnd << false << packet(0, noEnd, 0x9B35) << "V : 2.5 Chunk : 768 Total : 1 " << int(FWUpgrade::Rx_Data)
        << "INI version text has no end mark";
    QTest::newRow("the P of the mark alone is enough")
        << onlyP << false << packet(0, onlyP, 0x81D1) << "V : 7 Chunk : 16 Total : 1 " << int(FWUpgrade::Rx_Data) << "";
    QTest::newRow("DAT file gone at the first packet resets")
        << twoPacketIni << true << twoPacketIniPacket << "V : 1.0 Chunk : 768 Total : 2 " << int(FWUpgrade::Rx_Token)
        << "cannot open";
}

void TestFwUpgrade::hostileFiles()
{
    QFETCH(QByteArray, ini);
    QFETCH(bool, removeDat);
    QFETCH(QByteArray, toBox);
    QFETCH(QString, label);
    QFETCH(int, state);
    QFETCH(QString, message);
    MessageLog log;
    Rig r;
    QVERIFY(r.files(ini, image(1000)));
    if (removeDat)
        QVERIFY(QFile::remove(r.fw.datPath));
    r.fw.upgradeHandling(hexBytes("16") + abcFrame + hexBytes("06"));
    QCOMPARE(r.wire(4 + toBox.size()), hexBytes("E9") + "abc" + toBox);
    if (removeDat)
        r.fw.upgradeHandling(hexBytes("060000"));
    QCOMPARE(r.nothingMore(), QByteArray());
    QCOMPARE(r.label(), label);
    QCOMPARE(int(r.fw.rxState), state);
    if (!message.isEmpty())
        QVERIFY2(log.contains(message), qPrintable(log.messages().join('\n')));
}

void TestFwUpgrade::answerTimeouts_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<QByteArray>("in");
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<QStringList>("labels");
    QTest::addColumn<QString>("message");
    QTest::newRow("DAT packet sent four times, then reset")
        << int(FWUpgrade::Rx_Data) << hexBytes("060000") << packet1of2
        << QStringList{"Response Timeout 1 sequence 1", "Response Timeout 2 sequence 1", "Response Timeout 3 sequence 1"}
        << "";
    QTest::newRow("token answer has no sequence and shows 0")
        << int(FWUpgrade::Rx_Token) << hexBytes("16") << hexBytes("E9")
        << QStringList{"Response Timeout 1 sequence 0", "Response Timeout 2 sequence 0", "Response Timeout 3 sequence 0"}
        << "resent answer carries no sequence number: E9";
}

void TestFwUpgrade::answerTimeouts()
{
    QFETCH(int, state);
    QFETCH(QByteArray, in);
    QFETCH(QByteArray, sent);
    QFETCH(QStringList, labels);
    QFETCH(QString, message);
    MessageLog log;
    Rig r;
    QVERIFY(r.files(twoPacketIni, image(1000)));
    r.fw.responseTimeoutMs = 150; // the same path as the 5 s of the box, sooner
    r.fw.rxStateTrans(FWUpgrade::RxState(state));
    r.fw.total = 2;
    r.fw.upgradeHandling(in);
    QStringList seen;
    QVERIFY(waitUntil([&] {
        if (r.label().startsWith("Response") && !seen.contains(r.label()))
            seen << r.label();
        return r.fw.rxState == FWUpgrade::Rx_Token && !r.fw.responseTimer.isActive();
    }));
    QCOMPARE(seen, labels);
    QCOMPARE(r.wire(4 * sent.size()), sent + sent + sent + sent);
    QCOMPARE(r.nothingMore(), QByteArray());
    if (!message.isEmpty())
        QVERIFY2(log.contains(message), qPrintable(log.messages().join('\n')));
}

QTEST_MAIN(TestFwUpgrade)
#include "tst_fwupgrade.moc"
