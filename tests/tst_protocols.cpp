// The VSI, IEBus, VTS and plain serial lines, frame by frame through a window.
#include "testsupport.h"

#include "protocols/iebus.h"
#include "protocols/rs232.h"
#include "protocols/vsi.h"
#include "protocols/vts.h"

// A window with the (process-wide) tick of `mode` at 100, no VTS sync pending, and only a marker in its view.
struct View
{
    MainWindow w;

    explicit View(int mode)
    {
        feed(busFrame(0, 100, 0, mode, QByteArray()));
        w.ui->textBrowserParsed->setHtml("marker");
    }
    void feed(const QByteArray &frame)
    {
        const int mode = frame.at(BoxFrame::modeOffset);
        mode == 1 ? w.vsi->packageProcess(frame) : mode == 2 ? w.vts->packageProcess(frame)
                  : mode == 4 ? w.iebus->packageProcess(frame) : w.rs232->packageProcess(frame);
    }
    void expect(const QStringList &lines) { compareView(w.ui->textBrowserParsed, QStringList{"marker"} + lines); }
};

class TestProtocols : public QObject
{
    Q_OBJECT
private slots:
    void init() { writeSettingsIni(); }
    void cleanupTestCase() { removeSettingsIni(); }

    void lines_data()
    {
        QTest::addColumn<int>("flags"); // IEBus: unchecked boxes 1 remote, 2 button, 4 amount; 8 switch off
        QTest::addColumn<QByteArray>("frame");
        QTest::addColumn<QString>("expected"); // null: dropped
        // IEBus payload: broadcast bit, master, slave, control, length, data, then the sum.
        const auto ie = [](const char *hex, quint32 start = 100) { return busFrame(start, 110, 0, 4, hx("0102") + hx(hex)); };
        // Each row starts from an end tick of 100 and the IEBus colour gray, which IEBus never picks.
        QTest::newRow("VSI unknown direction is an empty paragraph") << 0 << busFrame(107, 110, 2, 1, hx("020501A2")) << "";
        QTest::newRow("VSI first direction blue, gap across the wrap")
            << 0 << busFrame(95, 98, 0, 1, hx("0AFF")) << "blue 4294967291 : 0A FF";
        QTest::newRow("232 empty payload, direction 1 green") << 0 << busFrame(100, 105, 1, 3, QByteArray()) << "green 0000 : ";
        QTest::newRow("individual display request from the unit is black, two rows") << 0 << ie("01080008C00F01C1A2", 107)
            << "black 0007 : 01 08 00 08 C0 0F 01 C1~individual~Display request control";
        QTest::newRow("broadcast from the remote green, shown with amount and button hidden") << 6 << ie("00090108000F01CBED")
            << "green 0000 : 00 09 01 08 00 0F 01 CB~broadcast~Hot and cold batch display control";
        QTest::newRow("one-byte record has no address to filter or colour by")
            << 7 << ie("0000") << "green 0000 : 00~broadcast";
        QTest::newRow("switch off keeps the last colour")
            << 8 << ie("01080008C00F01C1A2") << "gray 0000 : 01 08 00 08 C0 0F 01 C1";
        QTest::newRow("button traffic to the last button address hidden") << 2 << ie("01080008BFD0") << QString();
        QTest::newRow("button traffic from a button address hidden") << 2 << ie("010880080091") << QString();
        QTest::newRow("address past the buttons still shown")
            << 2 << ie("01080008C0D1") << "black 0000 : 01 08 00 08 C0~individual";
        QTest::newRow("remote hidden from the unit") << 1 << ie("010800090113") << QString();
        QTest::newRow("amount hidden towards the unit") << 4 << ie("010932080044") << QString();
        QTest::newRow("wrong checksum shown red despite the filters")
            << 7 << ie("010932080045") << "red 0000 : 01 09 32 08 00 45";
        QTest::newRow("empty payload, even one short of the address bytes, red")
            << 0 << busFrame(100, 110, 0, 4, hx("01")) << "red 0000 : ";
    }
    void lines()
    {
        QFETCH(int, flags);
        QFETCH(QByteArray, frame);
        QFETCH(QString, expected);
        writeSettingsIni({{"iebusRemote", !(flags & 1)}, {"iebusButton", !(flags & 2)}, {"iebusAmount", !(flags & 4)},
                          {"interpret", !(flags & 8)}});
        View v(frame.at(BoxFrame::modeOffset));
        v.w.iebus->color = "gray";
        v.feed(frame);
        v.expect(expected.isNull() ? QStringList() : QStringList{expected.isEmpty() ? expected : coloured(expected)});
        // A shown frame moves the tick on, whatever its direction; a dropped one (all end at 110) leaves it at 100.
        v.feed(busFrame(be32(frame, BoxFrame::endTickOffset) + 12, 0, 0, frame.at(BoxFrame::modeOffset), QByteArray()));
        QCOMPARE(v.w.ui->textBrowserParsed->document()->lastBlock().text(), QString(expected.isNull() ? "0022 : " : "0012 : "));
    }

    void vtsSequences_data()
    {
        QTest::addColumn<QList<QByteArray>>("frames");
        QTest::addColumn<QStringList>("expected");
        // Each row starts from an end tick of 100; direction 2 is the sync mark.
        const QByteArray sync = busFrame(0, 4095, 2, 2, QByteArray());
        const QString mark = "<span style='color:white;background-color:#297EA3;'>";
        QTest::newRow("only the first master byte after a sync marked, gap from before it")
            << QList<QByteArray>{sync, busFrame(107, 110, 0, 2, hx("5A0102")), busFrame(110, 111, 0, 2, hx("5A"))}
            << QStringList{"<span style='color: blue;'>0007 : M-> </span>" + mark + "5A</span><span style='color:blue;'> 01 02</span>",
                           "<span style='color: blue;'>0000 : M-> 5A</span>"};
        QTest::newRow("two syncs act as one, a lone marked byte leaves an empty span")
            << QList<QByteArray>{sync, sync, busFrame(101, 110, 1, 2, hx("02"))}
            << QStringList{"<span style='color:green;'>0001 : S-> </span>" + mark + "02</span><span style='color:green;'></span>"};
        QTest::newRow("sync survives a frame too short for a transfer and an unknown direction, which moves the tick")
            << QList<QByteArray>{sync, busFrame(101, 102, 0, 2, QByteArray()).left(17), busFrame(150, 200, 5, 2, hx("99")),
                                 busFrame(230, 240, 1, 2, hx("1122"))}
            << QStringList{"<span style='color:green;'>0030 : S-> </span>" + mark + "11</span><span style='color:green;'> 22</span>"};
    }
    void vtsSequences()
    {
        QFETCH(QList<QByteArray>, frames);
        QFETCH(QStringList, expected);
        View v(2);
        for (const QByteArray &f : frames)
            v.feed(f);
        v.expect(expected);
    }

    // The VSI record interpreter, which no line shows.
    void vsiInterpretor()
    {
        QCOMPARE(VSI::interpretor(hx("020501BC")), QString("Unknow CMD 0xbc"));
        QCOMPARE(VSI::interpretor(hx("020501")), QString("Length error"));
        QCOMPARE(VSI::interpretor(hx("020C01E001FB1A2B")),
                 indented("SERVICE_RPT ~Door: open~Temperature: -5 C~Fault code: 0x1a2b"));
        QCOMPARE(VSI::interpretor(hx("020E01E2000F42403C02")),
                 indented("INFO_RPT~Machine ID: 1000000~Columns: 60~Decimal places: 2"));
    }
};

QTEST_MAIN(TestProtocols)
#include "tst_protocols.moc"
