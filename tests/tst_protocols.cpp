// The VSI, IEBus, VTS and plain serial lines, frame by frame through a window.
#include "testsupport.h"

#include "app/mainwindow.h"
#include "link/frame.h"
#include "protocols/bustransfer.h"
#include "protocols/iebus.h"
#include "protocols/rs232.h"
#include "protocols/vsi.h"
#include "protocols/vts.h"
#include "settings/settings.h"
#include "ui_mainwindow.h"
#include "ui_settings.h"

#include <QCheckBox>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTextCursor>
#include <QTextDocumentFragment>

namespace {

void feed(MainWindow &w, int mode, const QByteArray &frame)
{
    switch (mode) {
    case 1: w.vsi->packageProcess(frame); break;
    case 2: w.vts->packageProcess(frame); break;
    case 4: w.iebus->packageProcess(frame); break;
    default: w.rs232->packageProcess(frame); break;
    }
}

int paragraphs(MainWindow &w)
{
    return w.ui->textBrowserParsed->document()->blockCount();
}

// The paragraph `back` places from the end, as the view holds it.
QString paragraphHtml(MainWindow &w, int back)
{
    QTextBlock block = w.ui->textBrowserParsed->document()->lastBlock();
    for (int i = 0; i < back; ++i)
        block = block.previous();
    QTextCursor c(block);
    c.movePosition(QTextCursor::EndOfBlock, QTextCursor::KeepAnchor);
    return c.selection().toHtml();
}

// Sets each renderer's tick to `end` and leaves a marker paragraph, so that
// every later line is a paragraph of its own and its gap is known. A master
// line also clears a pending VTS sync mark.
int prime(MainWindow &w, int mode, quint32 end)
{
    feed(w, mode, busFrame(0, end, 0, mode, QByteArray()));
    w.ui->textBrowserParsed->append(QStringLiteral("marker"));
    return paragraphs(w);
}

// The last lines of the view read as the expected fragments would.
void compareTail(MainWindow &w, const QStringList &expected)
{
    const int n = int(expected.size());
    QStringList shown;
    for (int i = n - 1; i >= 0; --i)
        shown << paragraphHtml(w, i);
    for (int i = 0; i < n; ++i) {
        w.ui->textBrowserParsed->append(expected.at(i));
        QCOMPARE(shown.at(i), paragraphHtml(w, 0));
    }
}

QByteArray iebusFrame(quint32 start, quint32 end, const char *payloadHex)
{
    return busFrame(start, end, 0, 4, hexBytes("0102") + hexBytes(payloadHex));
}

} // namespace

class TestProtocols : public QObject
{
    Q_OBJECT
private slots:
    void init() { writeSettingsIni(); }
    void cleanupTestCase() { removeSettingsIni(); }

    void plainLines_data();
    void plainLines();
    void vtsSequences_data();
    void vtsSequences();
    void iebusLines_data();
    void iebusLines();
    void iebusFilteredFrameKeepsGap();
    void iebusInterpretor_data();
    void iebusInterpretor();
    void vsiInterpretor_data();
    void vsiInterpretor();
    void shortFrames_data();
    void shortFrames();
};

void TestProtocols::plainLines_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<quint32>("lastEnd");
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QString>("expected");
    QTest::newRow("VSI first direction blue, two digits a byte")
        << 1 << 100u << busFrame(130, 140, 0, 1, hexBytes("0AFF"))
        << "<span style='color: blue;'>0030 : 0A FF</span>";
    QTest::newRow("VSI second direction green")
        << 1 << 100u << busFrame(107, 110, 1, 1, hexBytes("41"))
        << "<span style='color: green;'>0007 : 41</span>";
    QTest::newRow("VSI unknown direction is an empty paragraph")
        << 1 << 100u << busFrame(107, 110, 2, 1, hexBytes("41")) << "";
    QTest::newRow("VSI gap wraps past zero")
        << 1 << 10u << busFrame(5, 8, 0, 1, hexBytes("00")) << "<span style='color: blue;'>4294967291 : 00</span>";
    QTest::newRow("VSI empty payload ends after the colon")
        << 1 << 50u << busFrame(50, 60, 0, 1, QByteArray()) << "<span style='color: blue;'>0000 : </span>";
    QTest::newRow("232 AT command")
        << 3 << 1000u << busFrame(1020, 1030, 0, 3, hexBytes("41540D"))
        << "<span style='color: blue;'>0020 : 41 54 0D</span>";
    QTest::newRow("485 empty reply green with zero gap")
        << 6 << 77u << busFrame(77, 80, 1, 6, QByteArray()) << "<span style='color: green;'>0000 : </span>";
    QTest::newRow("CAN six-digit gap in full")
        << 7 << 0u << busFrame(123456, 123460, 1, 7, hexBytes("7F80"))
        << "<span style='color: green;'>123456 : 7F 80</span>";
    QTest::newRow("TTL direction FF is not shown")
        << 8 << 0u << busFrame(1, 2, -1, 8, hexBytes("55")) << "";
    QTest::newRow("Debug direction 2 is not shown")
        << 5 << 0u << busFrame(1, 2, 2, 5, hexBytes("55")) << "";
}

void TestProtocols::plainLines()
{
    QFETCH(int, mode);
    QFETCH(quint32, lastEnd);
    QFETCH(QByteArray, frame);
    QFETCH(QString, expected);

    const QString line = plainLine(frame, lastEnd);
    QCOMPARE(line, expected);
    QVERIFY(!line.isNull());

    MainWindow w;
    const int before = prime(w, mode, lastEnd);
    feed(w, mode, frame);
    QCOMPARE(paragraphs(w), before + 1);
    compareTail(w, {expected});

    // Every frame moves the tick on, shown or not.
    feed(w, mode, busFrame(be32(frame, 9) + 12, 0, 0, mode, hexBytes("01")));
    QCOMPARE(w.ui->textBrowserParsed->document()->lastBlock().text(), QString("0012 : 01"));
}

void TestProtocols::vtsSequences_data()
{
    QTest::addColumn<QList<QByteArray>>("frames");
    QTest::addColumn<QStringList>("expected");
    const QByteArray sync = busFrame(0, 0, 2, 2, QByteArray());
    QTest::newRow("master and slave lines")
        << QList<QByteArray>{busFrame(107, 110, 0, 2, hexBytes("5A0102")), busFrame(115, 120, 1, 2, hexBytes("A5"))}
        << QStringList{"<span style='color: blue;'>0007 : M-> 5A 01 02</span>",
                       "<span style='color: green;'>0005 : S-> A5</span>"};
    QTest::newRow("first byte after a sync marked")
        << QList<QByteArray>{sync, busFrame(107, 110, 0, 2, hexBytes("5A0102")), busFrame(110, 111, 0, 2, hexBytes("5A"))}
        << QStringList{"<span style='color: blue;'>0007 : M-> </span><span style='color:white;background-color:#297EA3;'>5A</span><span style='color:blue;'> 01 02</span>",
                       "<span style='color: blue;'>0000 : M-> 5A</span>"};
    QTest::newRow("slave after a sync marked")
        << QList<QByteArray>{sync, busFrame(100, 110, 1, 2, hexBytes("0203"))}
        << QStringList{"<span style='color:green;'>0000 : S-> </span><span style='color:white;background-color:#297EA3;'>02</span><span style='color:green;'> 03</span>"};
    QTest::newRow("two syncs act as one")
        << QList<QByteArray>{sync, sync, busFrame(101, 110, 1, 2, hexBytes("02")), busFrame(111, 112, 1, 2, hexBytes("03"))}
        << QStringList{"<span style='color:green;'>0001 : S-> </span><span style='color:white;background-color:#297EA3;'>02</span><span style='color:green;'></span>",
                       "<span style='color: green;'>0001 : S-> 03</span>"};
    QTest::newRow("sync survives an unknown direction, which moves the tick")
        << QList<QByteArray>{sync, busFrame(150, 200, 5, 2, hexBytes("99")), busFrame(230, 240, 0, 2, hexBytes("1122"))}
        << QStringList{"<span style='color: blue;'>0030 : M-> </span><span style='color:white;background-color:#297EA3;'>11</span><span style='color:blue;'> 22</span>"};
    QTest::newRow("sync keeps the gap from the transfer before it")
        << QList<QByteArray>{busFrame(0, 4095, 2, 2, QByteArray()), busFrame(120, 130, 1, 2, hexBytes("01"))}
        << QStringList{"<span style='color:green;'>0020 : S-> </span><span style='color:white;background-color:#297EA3;'>01</span><span style='color:green;'></span>"};
    QTest::newRow("empty transfer after a sync clears the mark")
        << QList<QByteArray>{sync, busFrame(100, 100, 0, 2, QByteArray()), busFrame(100, 100, 0, 2, hexBytes("01"))}
        << QStringList{"<span style='color: blue;'>0000 : M-> </span><span style='color:white;background-color:#297EA3;'></span><span style='color:blue;'></span>",
                       "<span style='color: blue;'>0000 : M-> 01</span>"};
    QTest::newRow("gap wraps past zero")
        << QList<QByteArray>{busFrame(95, 96, 0, 2, hexBytes("FF"))}
        << QStringList{"<span style='color: blue;'>4294967291 : M-> FF</span>"};
}

void TestProtocols::vtsSequences()
{
    QFETCH(QList<QByteArray>, frames);
    QFETCH(QStringList, expected);
    MainWindow w;
    const int before = prime(w, 2, 100);
    QStringList emitted;
    connect(w.vts, &VTS::showTranslation, this, [&] { emitted << w.vts->translation; });
    for (const QByteArray &f : frames)
        w.vts->packageProcess(f);
    QCOMPARE(emitted, expected);
    QCOMPARE(paragraphs(w), before + int(expected.size()));
    compareTail(w, expected);
}

void TestProtocols::iebusLines_data()
{
    QTest::addColumn<bool>("interpret");
    QTest::addColumn<int>("hidden"); // unchecked boxes: 1 remote, 2 button, 4 amount
    QTest::addColumn<QString>("colorBefore");
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QString>("expected"); // null: dropped

    // Record: broadcast bit, master, slave, control, length, data; then the sum.
    QTest::newRow("individual display request from the unit is black, two rows")
        << true << 0 << "green" << iebusFrame(107, 110, "01080008C00F01C1A2")
        << "<span style='color: black;'>0007 : 01 08 00 08 C0 0F 01 C1<br>&nbsp;&nbsp;&nbsp;&nbsp;individual<br>&nbsp;&nbsp;&nbsp;&nbsp;Display request control</span>";
    QTest::newRow("broadcast from another master is green")
        << true << 0 << "black" << iebusFrame(100, 110, "00090108000F01CBED")
        << "<span style='color: green;'>0000 : 00 09 01 08 00 0F 01 CB<br>&nbsp;&nbsp;&nbsp;&nbsp;broadcast<br>&nbsp;&nbsp;&nbsp;&nbsp;Hot and cold batch display control</span>";
    QTest::newRow("C1 known only for individual frames")
        << true << 0 << "black" << iebusFrame(100, 110, "00080008C00F01C1A1")
        << "<span style='color: black;'>0000 : 00 08 00 08 C0 0F 01 C1<br>&nbsp;&nbsp;&nbsp;&nbsp;broadcast</span>";
    QTest::newRow("C8 known only for broadcast frames")
        << true << 0 << "black" << iebusFrame(100, 110, "01090008C00F01C8AA")
        << "<span style='color: green;'>0000 : 01 09 00 08 C0 0F 01 C8<br>&nbsp;&nbsp;&nbsp;&nbsp;individual</span>";
    QTest::newRow("record without message kind names only the addressing")
        << true << 0 << "green" << iebusFrame(100, 110, "0108000912")
        << "<span style='color: black;'>0000 : 01 08 00 09<br>&nbsp;&nbsp;&nbsp;&nbsp;individual</span>";
    QTest::newRow("one-byte record has no address and is green")
        << true << 6 << "black" << iebusFrame(100, 110, "0000")
        << "<span style='color: green;'>0000 : 00<br>&nbsp;&nbsp;&nbsp;&nbsp;broadcast</span>";
    QTest::newRow("switch off keeps the last colour")
        << false << 0 << "green" << iebusFrame(100, 110, "01080008C00F01C1A2")
        << "<span style='color: green;'>0000 : 01 08 00 08 C0 0F 01 C1</span>";
    QTest::newRow("switch off before any interpretation is black")
        << false << 0 << "black" << iebusFrame(100, 110, "00090108000F01CBED")
        << "<span style='color: black;'>0000 : 00 09 01 08 00 0F 01 CB</span>";
    QTest::newRow("button traffic to the last button address hidden")
        << true << 2 << "black" << iebusFrame(100, 110, "01080008BFD0")
        << QString();
    QTest::newRow("button traffic from a button address hidden")
        << true << 2 << "black" << iebusFrame(100, 110, "010880080091")
        << QString();
    QTest::newRow("address past the buttons still shown")
        << true << 2 << "black" << iebusFrame(100, 110, "01080008C0D1")
        << "<span style='color: black;'>0000 : 01 08 00 08 C0<br>&nbsp;&nbsp;&nbsp;&nbsp;individual</span>";
    QTest::newRow("remote hidden from the unit")
        << true << 1 << "black" << iebusFrame(100, 110, "010800090113")
        << QString();
    QTest::newRow("remote hidden towards the unit")
        << true << 1 << "black" << iebusFrame(100, 110, "010901080013")
        << QString();
    QTest::newRow("remote shown while only amount is hidden")
        << true << 4 << "black" << iebusFrame(100, 110, "010901080013")
        << "<span style='color: green;'>0000 : 01 09 01 08 00<br>&nbsp;&nbsp;&nbsp;&nbsp;individual</span>";
    QTest::newRow("amount hidden towards the unit")
        << true << 4 << "black" << iebusFrame(100, 110, "010932080044")
        << QString();
    QTest::newRow("wrong checksum shown red despite the filter")
        << true << 7 << "black" << iebusFrame(100, 110, "010932080045")
        << "<span style='color: red;'>0000 : 01 09 32 08 00 45</span>";
    QTest::newRow("empty payload red")
        << true << 0 << "black" << iebusFrame(100, 110, "")
        << "<span style='color: red;'>0000 : </span>";
    QTest::newRow("one-byte payload red")
        << true << 0 << "black" << iebusFrame(100, 110, "00")
        << "<span style='color: red;'>0000 : 00</span>";
    QTest::newRow("gap wraps past zero")
        << true << 0 << "black" << iebusFrame(95, 110, "0000")
        << "<span style='color: green;'>4294967291 : 00<br>&nbsp;&nbsp;&nbsp;&nbsp;broadcast</span>";
    QTest::newRow("short box frame shows an empty red payload")
        << true << 0 << "black" << busFrame(100, 110, 0, 4, hexBytes("01"))
        << "<span style='color: red;'>0000 : </span>";
}

void TestProtocols::iebusLines()
{
    QFETCH(bool, interpret);
    QFETCH(int, hidden);
    QFETCH(QString, colorBefore);
    QFETCH(QByteArray, frame);
    QFETCH(QString, expected);
    Iebus::Filters filters;
    filters.remote = !(hidden & 1);
    filters.button = !(hidden & 2);
    filters.amount = !(hidden & 4);

    QString color = colorBefore;
    const QString line = Iebus::line(frame, 100, filters, interpret, &color);
    QCOMPARE(line, expected);
    QCOMPARE(line.isNull(), expected.isNull());

    MainWindow w;
    const int before = prime(w, 4, 100);
    w.interpret = interpret;
    w.settings->ui->checkBoxRemote->setChecked(filters.remote);
    w.settings->ui->checkBoxButton->setChecked(filters.button);
    w.settings->ui->checkBoxAmount->setChecked(filters.amount);
    w.iebus->color = colorBefore;
    w.iebus->packageProcess(frame);
    if (expected.isNull()) {
        QCOMPARE(paragraphs(w), before);
        QCOMPARE(w.ui->textBrowserParsed->document()->lastBlock().text(), QString("marker"));
    } else {
        QCOMPARE(paragraphs(w), before + 1);
        compareTail(w, {expected});
    }
}

void TestProtocols::iebusFilteredFrameKeepsGap()
{
    MainWindow w;
    const int before = prime(w, 4, 100);
    w.settings->ui->checkBoxAmount->setChecked(false);
    w.iebus->packageProcess(iebusFrame(200, 500, "010800093244")); // hidden
    w.iebus->packageProcess(iebusFrame(130, 140, "0000"));
    QCOMPARE(paragraphs(w), before + 1);
    compareTail(w, {"<span style='color: green;'>0030 : 00<br>&nbsp;&nbsp;&nbsp;&nbsp;broadcast</span>"});
}

void TestProtocols::iebusInterpretor_data()
{
    QTest::addColumn<bool>("interpret");
    QTest::addColumn<QByteArray>("record");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("color");
    QTest::newRow("serial registration requirement")
        << true << hexBytes("01080009320F0181") << "&nbsp;&nbsp;&nbsp;&nbsp;individual<br>&nbsp;&nbsp;&nbsp;&nbsp;Serial number registration requirement" << "black";
    QTest::newRow("LED indication broadcast")
        << true << hexBytes("00090108000F0150") << "&nbsp;&nbsp;&nbsp;&nbsp;broadcast<br>&nbsp;&nbsp;&nbsp;&nbsp;LED simultaneous ON/OFF indication" << "green";
    QTest::newRow("unknown kind names only the addressing")
        << true << hexBytes("00080008000F0177") << "&nbsp;&nbsp;&nbsp;&nbsp;broadcast" << "black";
    QTest::newRow("master 0x0801 is not the unit")
        << true << hexBytes("0108010800") << "&nbsp;&nbsp;&nbsp;&nbsp;individual" << "green";
    QTest::newRow("switch off still sets the colour")
        << false << hexBytes("00080008000F0150") << "" << "black";
}

void TestProtocols::iebusInterpretor()
{
    QFETCH(bool, interpret);
    QFETCH(QByteArray, record);
    QFETCH(QString, text);
    QFETCH(QString, color);
    MainWindow w;
    w.interpret = interpret;
    w.iebus->color = "magenta";
    QCOMPARE(w.iebus->interpretor(record), text);
    QCOMPARE(w.iebus->color, color);
}

void TestProtocols::vsiInterpretor_data()
{
    QTest::addColumn<QByteArray>("record");
    QTest::addColumn<QString>("text");
    const QString in = "&nbsp;&nbsp;&nbsp;&nbsp;";
    QTest::newRow("poll") << hexBytes("020501A2") << "POLL";
    QTest::newRow("ack") << hexBytes("020501A0FF") << "ACK ";
    QTest::newRow("nak") << hexBytes("020501A1") << "NAK ";
    QTest::newRow("update request") << hexBytes("020501E7") << "GET_UPDATA ";
    QTest::newRow("unknown code in lower-case hex") << hexBytes("020501BC") << "Unknow CMD 0xbc";
    QTest::newRow("record without a code byte") << hexBytes("020501") << "Length error";
    QTest::newRow("status report")
        << hexBytes("020C01E001FB1A2B")
        << "SERVICE_RPT <br>" + in + "Door: open<br>" + in + "Temperature: -5 C<br>" + in + "Fault code: 0x1a2b";
    QTest::newRow("sales report")
        << hexBytes("021001E10C01F40100012345")
        << "ACTION_RPT <br>" + in + "Column: 12<br>" + in + "Price: 500<br>" + in + "Payment: cashless<br>" + in + "Sales count: 74565";
    QTest::newRow("sales report with an unknown payment")
        << hexBytes("021001E1000000070000000A")
        << "ACTION_RPT <br>" + in + "Column: 0<br>" + in + "Price: 0<br>" + in + "Payment: unknown 0x07<br>" + in + "Sales count: 10";
    QTest::newRow("configuration report rows follow its own break")
        << hexBytes("020E01E2000F42403C02")
        << "INFO_RPT<br>" + in + "Machine ID: 1000000<br>" + in + "Columns: 60<br>" + in + "Decimal places: 2";
    QTest::newRow("short status report")
        << hexBytes("020C01E00000") << "SERVICE_RPT <br>" + in + "Length error";
}

void TestProtocols::vsiInterpretor()
{
    QFETCH(QByteArray, record);
    QFETCH(QString, text);
    QCOMPARE(VSI::interpretor(record), text);

    // The line stays plain hex whatever the record says.
    MainWindow w;
    const int before = prime(w, 1, 0);
    w.vsi->packageProcess(busFrame(0, 0, 0, 1, record));
    QCOMPARE(paragraphs(w), before + 1);
    QCOMPARE(w.ui->textBrowserParsed->document()->lastBlock().text(), "0000 : " + record.toHex(' ').toUpper());
}

void TestProtocols::shortFrames_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QByteArray>("frame");
    const QByteArray full = busFrame(1, 2, 0, 0, QByteArray());
    for (int mode : {1, 2, 3, 4}) {
        const QByteArray tag = QByteArray::number(mode);
        QTest::newRow("mode " + tag + " empty frame") << mode << QByteArray();
        QTest::newRow("mode " + tag + " header only") << mode << full.left(5);
        QTest::newRow("mode " + tag + " no trailer") << mode << full.left(15);
        QTest::newRow("mode " + tag + " one byte short") << mode << full.left(17);
    }
}

void TestProtocols::shortFrames()
{
    QFETCH(int, mode);
    QFETCH(QByteArray, frame);
    MainWindow w;
    const int before = prime(w, mode, 0);
    MessageLog log;
    feed(w, mode, frame);
    QCOMPARE(paragraphs(w), before);
    QVERIFY(log.contains("too short"));
}

QTEST_MAIN(TestProtocols)
#include "tst_protocols.moc"
