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

QString lastParagraphHtml(MainWindow &w)
{
    QTextCursor c(w.ui->textBrowserParsed->document()->lastBlock());
    c.movePosition(QTextCursor::EndOfBlock, QTextCursor::KeepAnchor);
    return c.selection().toHtml();
}

// Sets the renderer's tick to `end` (a master line also clears a pending VTS
// sync mark; the ticks are process-wide) and leaves a marker paragraph, so
// that every later line is a paragraph of its own.
int prime(MainWindow &w, int mode, quint32 end)
{
    feed(w, mode, busFrame(0, end, 0, mode, QByteArray()));
    w.ui->textBrowserParsed->append(QStringLiteral("marker"));
    return paragraphs(w);
}

// The last paragraph reads as the expected fragment does once appended.
void compareLast(MainWindow &w, const QString &expected)
{
    const QString shown = lastParagraphHtml(w);
    w.ui->textBrowserParsed->append(expected);
    QCOMPARE(shown, lastParagraphHtml(w));
}

QByteArray iebusFrame(quint32 start, quint32 end, const char *payloadHex)
{
    return busFrame(start, end, 0, 4, hexBytes("0102") + hexBytes(payloadHex));
}

const QString in = QStringLiteral("&nbsp;&nbsp;&nbsp;&nbsp;");

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
    void iebusInterpretorSetsColour();
    void vsiInterpretor_data();
    void vsiInterpretor();
    void shortFrames_data();
    void shortFrames();
};

void TestProtocols::plainLines_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QString>("expected");
    // Each row starts from an end tick of 100.
    QTest::newRow("VSI first direction blue, two digits a byte")
        << 1 << busFrame(130, 140, 0, 1, hexBytes("0AFF")) << "<span style='color: blue;'>0030 : 0A FF</span>";
    QTest::newRow("VSI unknown direction is an empty paragraph") << 1 << busFrame(107, 110, 2, 1, hexBytes("020501A2")) << "";
    QTest::newRow("VSI gap wraps past zero")
        << 1 << busFrame(95, 98, 0, 1, hexBytes("00")) << "<span style='color: blue;'>4294967291 : 00</span>";
    QTest::newRow("VSI empty payload ends after the colon")
        << 1 << busFrame(100, 160, 0, 1, QByteArray()) << "<span style='color: blue;'>0000 : </span>";
    QTest::newRow("232 AT command")
        << 3 << busFrame(120, 130, 0, 3, hexBytes("41540D")) << "<span style='color: blue;'>0020 : 41 54 0D</span>";
    QTest::newRow("485 empty reply green") << 6 << busFrame(100, 105, 1, 6, QByteArray()) << "<span style='color: green;'>0000 : </span>";
    QTest::newRow("CAN six-digit gap in full")
        << 7 << busFrame(123556, 123560, 1, 7, hexBytes("7F80")) << "<span style='color: green;'>123456 : 7F 80</span>";
    QTest::newRow("TTL direction FF is not shown") << 8 << busFrame(101, 102, -1, 8, hexBytes("55")) << "";
}

void TestProtocols::plainLines()
{
    QFETCH(int, mode);
    QFETCH(QByteArray, frame);
    QFETCH(QString, expected);

    const QString line = plainLine(frame, 100);
    QCOMPARE(line, expected);
    QVERIFY(!line.isNull());

    MainWindow w;
    const int before = prime(w, mode, 100);
    feed(w, mode, frame);
    QCOMPARE(paragraphs(w), before + 1);
    compareLast(w, expected);

    // Every frame moves the tick on, shown or not.
    feed(w, mode, busFrame(be32(frame, 9) + 12, 0, 0, mode, hexBytes("01")));
    QCOMPARE(w.ui->textBrowserParsed->document()->lastBlock().text(), QString("0012 : 01"));
}

void TestProtocols::vtsSequences_data()
{
    QTest::addColumn<QList<QByteArray>>("frames");
    QTest::addColumn<QStringList>("expected");
    // Each row starts from an end tick of 100; direction 2 is the sync mark.
    const QByteArray sync = busFrame(0, 4095, 2, 2, QByteArray());
    const QString mark = "<span style='color:white;background-color:#297EA3;'>";
    QTest::newRow("master and slave lines")
        << QList<QByteArray>{busFrame(107, 110, 0, 2, hexBytes("5A0102")), busFrame(115, 120, 1, 2, hexBytes("A5"))}
        << QStringList{"<span style='color: blue;'>0007 : M-> 5A 01 02</span>", "<span style='color: green;'>0005 : S-> A5</span>"};
    QTest::newRow("only the first master byte after a sync marked, gap from before the sync")
        << QList<QByteArray>{sync, busFrame(107, 110, 0, 2, hexBytes("5A0102")), busFrame(110, 111, 0, 2, hexBytes("5A"))}
        << QStringList{"<span style='color: blue;'>0007 : M-> </span>" + mark + "5A</span><span style='color:blue;'> 01 02</span>",
                       "<span style='color: blue;'>0000 : M-> 5A</span>"};
    QTest::newRow("two syncs act as one, one marked slave byte leaves an empty span")
        << QList<QByteArray>{sync, sync, busFrame(101, 110, 1, 2, hexBytes("02")), busFrame(111, 112, 1, 2, hexBytes("03"))}
        << QStringList{"<span style='color:green;'>0001 : S-> </span>" + mark + "02</span><span style='color:green;'></span>",
                       "<span style='color: green;'>0001 : S-> 03</span>"};
    QTest::newRow("sync survives an unknown direction, which moves the tick")
        << QList<QByteArray>{sync, busFrame(150, 200, 5, 2, hexBytes("99")), busFrame(230, 240, 1, 2, hexBytes("1122"))}
        << QStringList{"<span style='color:green;'>0030 : S-> </span>" + mark + "11</span><span style='color:green;'> 22</span>"};
    QTest::newRow("empty transfer after a sync clears the mark")
        << QList<QByteArray>{sync, busFrame(100, 100, 0, 2, QByteArray()), busFrame(100, 100, 0, 2, hexBytes("01"))}
        << QStringList{"<span style='color: blue;'>0000 : M-> </span>" + mark + "</span><span style='color:blue;'></span>",
                       "<span style='color: blue;'>0000 : M-> 01</span>"};
    QTest::newRow("gap wraps past zero")
        << QList<QByteArray>{busFrame(95, 96, 0, 2, hexBytes("FF"))} << QStringList{"<span style='color: blue;'>4294967291 : M-> FF</span>"};
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
    compareLast(w, expected.last());
}

void TestProtocols::iebusLines_data()
{
    QTest::addColumn<bool>("interpret");
    QTest::addColumn<int>("hidden"); // unchecked boxes: 1 remote, 2 button, 4 amount
    QTest::addColumn<QString>("colorBefore");
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QString>("expected"); // null: dropped
    // Each row starts from an end tick of 100. Payload: broadcast bit,
    // master, slave, control, length, data, then the sum.
    QTest::newRow("individual display request from the unit is black, two rows")
        << true << 0 << "green" << iebusFrame(107, 110, "01080008C00F01C1A2")
        << "<span style='color: black;'>0007 : 01 08 00 08 C0 0F 01 C1<br>" + in + "individual<br>" + in + "Display request control</span>";
    QTest::newRow("broadcast from another master is green")
        << true << 0 << "black" << iebusFrame(100, 110, "00090108000F01CBED")
        << "<span style='color: green;'>0000 : 00 09 01 08 00 0F 01 CB<br>" + in + "broadcast<br>" + in + "Hot and cold batch display control</span>";
    QTest::newRow("C1 known only for individual frames")
        << true << 0 << "black" << iebusFrame(100, 110, "00080008C00F01C1A1")
        << "<span style='color: black;'>0000 : 00 08 00 08 C0 0F 01 C1<br>" + in + "broadcast</span>";
    QTest::newRow("C8 known only for broadcast frames")
        << true << 0 << "black" << iebusFrame(100, 110, "01090008C00F01C8AA")
        << "<span style='color: green;'>0000 : 01 09 00 08 C0 0F 01 C8<br>" + in + "individual</span>";
    QTest::newRow("one-byte record has no address to filter or colour")
        << true << 6 << "black" << iebusFrame(100, 110, "0000") << "<span style='color: green;'>0000 : 00<br>" + in + "broadcast</span>";
    QTest::newRow("switch off keeps the last colour")
        << false << 0 << "green" << iebusFrame(100, 110, "01080008C00F01C1A2")
        << "<span style='color: green;'>0000 : 01 08 00 08 C0 0F 01 C1</span>";
    QTest::newRow("button traffic to the last button address hidden") << true << 2 << "black" << iebusFrame(100, 110, "01080008BFD0") << QString();
    QTest::newRow("button traffic from a button address hidden") << true << 2 << "black" << iebusFrame(100, 110, "010880080091") << QString();
    QTest::newRow("address past the buttons still shown")
        << true << 2 << "black" << iebusFrame(100, 110, "01080008C0D1") << "<span style='color: black;'>0000 : 01 08 00 08 C0<br>" + in + "individual</span>";
    QTest::newRow("remote hidden from the unit") << true << 1 << "black" << iebusFrame(100, 110, "010800090113") << QString();
    QTest::newRow("remote hidden towards the unit") << true << 1 << "black" << iebusFrame(100, 110, "010901080013") << QString();
    QTest::newRow("remote shown while only amount is hidden")
        << true << 4 << "black" << iebusFrame(100, 110, "010901080013") << "<span style='color: green;'>0000 : 01 09 01 08 00<br>" + in + "individual</span>";
    QTest::newRow("amount hidden towards the unit") << true << 4 << "black" << iebusFrame(100, 110, "010932080044") << QString();
    QTest::newRow("wrong checksum shown red despite the filters")
        << true << 7 << "black" << iebusFrame(100, 110, "010932080045") << "<span style='color: red;'>0000 : 01 09 32 08 00 45</span>";
    QTest::newRow("empty payload red") << true << 0 << "black" << iebusFrame(100, 110, "") << "<span style='color: red;'>0000 : </span>";
    QTest::newRow("gap wraps past zero")
        << true << 0 << "black" << iebusFrame(95, 110, "0000") << "<span style='color: green;'>4294967291 : 00<br>" + in + "broadcast</span>";
    QTest::newRow("box frame too short for a payload shows it empty")
        << true << 0 << "black" << busFrame(100, 110, 0, 4, hexBytes("01")) << "<span style='color: red;'>0000 : </span>";
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
    QCOMPARE(paragraphs(w), before + (expected.isNull() ? 0 : 1));
    compareLast(w, expected.isNull() ? QString("marker") : expected);
}

void TestProtocols::iebusFilteredFrameKeepsGap()
{
    MainWindow w;
    const int before = prime(w, 4, 100);
    w.settings->ui->checkBoxAmount->setChecked(false);
    w.iebus->packageProcess(iebusFrame(200, 500, "010800093244")); // hidden
    w.iebus->packageProcess(iebusFrame(130, 140, "0000"));
    QCOMPARE(paragraphs(w), before + 1);
    compareLast(w, "<span style='color: green;'>0030 : 00<br>" + in + "broadcast</span>");
}

void TestProtocols::iebusInterpretorSetsColour()
{
    MainWindow w;
    QCOMPARE(w.iebus->interpretor(hexBytes("01080009320F0181")), in + "individual<br>" + in + "Serial number registration requirement");
    QCOMPARE(w.iebus->color, QString("black"));
    w.interpret = false;
    QCOMPARE(w.iebus->interpretor(hexBytes("0108010800")), QString());
    QCOMPARE(w.iebus->color, QString("green"));
}

void TestProtocols::vsiInterpretor_data()
{
    QTest::addColumn<QByteArray>("record");
    QTest::addColumn<QString>("text");
    QTest::newRow("poll") << hexBytes("020501A2") << "POLL";
    QTest::newRow("unknown code in lower-case hex") << hexBytes("020501BC") << "Unknow CMD 0xbc";
    QTest::newRow("record without a code byte") << hexBytes("020501") << "Length error";
    QTest::newRow("status report")
        << hexBytes("020C01E001FB1A2B") << "SERVICE_RPT <br>" + in + "Door: open<br>" + in + "Temperature: -5 C<br>" + in + "Fault code: 0x1a2b";
    QTest::newRow("sales report")
        << hexBytes("021001E10C01F40100012345")
        << "ACTION_RPT <br>" + in + "Column: 12<br>" + in + "Price: 500<br>" + in + "Payment: cashless<br>" + in + "Sales count: 74565";
    QTest::newRow("configuration rows follow the name's own break")
        << hexBytes("020E01E2000F42403C02") << "INFO_RPT<br>" + in + "Machine ID: 1000000<br>" + in + "Columns: 60<br>" + in + "Decimal places: 2";
    QTest::newRow("short status report") << hexBytes("020C01E00000") << "SERVICE_RPT <br>" + in + "Length error";
}

void TestProtocols::vsiInterpretor()
{
    QFETCH(QByteArray, record);
    QFETCH(QString, text);
    QCOMPARE(VSI::interpretor(record), text);
}

void TestProtocols::shortFrames_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("size");
    for (int mode : {1, 2, 3, 4})
        for (int size : {0, 5, 15, 17})
            QTest::addRow("mode %d, %d bytes", mode, size) << mode << size;
}

void TestProtocols::shortFrames()
{
    QFETCH(int, mode);
    QFETCH(int, size);
    MainWindow w;
    const int before = prime(w, mode, 0);
    MessageLog log;
    feed(w, mode, busFrame(1, 2, 0, mode, QByteArray()).left(size));
    QCOMPARE(paragraphs(w), before);
    QVERIFY(log.contains("too short"));
}

QTEST_MAIN(TestProtocols)
#include "tst_protocols.moc"
