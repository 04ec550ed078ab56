// Whole MDB transactions through a real main window, as the receiver delivers them.
#include "testsupport.h"

#include "app/mainwindow.h"
#include "mdb/mdb.h"
#include "settings/settings.h"
#include "ui_mainwindow.h"
#include "ui_settings.h"

#include <QComboBox>

// The program keeps its last end tick for the whole process: every frame this file sends goes through next().
static quint32 lastEnd = 0;

// One step: kind, gap, data bytes ("M4 3131"); M a VMC command, S a peripheral's reply, V the VMC's ACK, A a peripheral's.
static QByteArray next(const QString &step)
{
    const QChar kind = step.at(0);
    const QByteArray data = QByteArray::fromHex(step.section(' ', 1).toLatin1());
    QByteArray bus;
    for (int i = 0; i < data.size(); ++i) // the mode bit: on a command's first byte, on a reply's last
        bus += data.at(i) + QByteArray(1, char(((kind == 'M' || kind == 'A') && i == 0) || (kind == 'S' && i == data.size() - 1)));
    const quint32 start = lastEnd + step.section(' ', 0, 0).mid(1).toUInt();
    lastEnd = start + 1 + 2 * quint32(data.size());
    return busFrame(start, lastEnd, kind == 'S' || kind == 'A' ? 1 : 0, 0, bus);
}

// The view holds exactly these "colour text" lines; "~" is a break and the field indent, "^" a break and the list indent.
static void expectView(MainWindow &w, const QStringList &lines)
{
    QTextBrowser expected;
    for (const QString &l : lines)
        expected.append("<span style='color: " + l.section(' ', 0, 0) + ";'>" + l.section(' ', 1)
                        .replace("^", "~&nbsp;&nbsp;&nbsp;&nbsp;").replace("~", "<br>&nbsp;&nbsp;&nbsp;&nbsp;") + "</span>");
    QCOMPARE(w.ui->textBrowserParsed->toHtml().section("<p ", 1).split('\n'), expected.toHtml().section("<p ", 1).split('\n'));
}

class TestMdbWindow : public QObject
{
    Q_OBJECT
private slots:
    void init() { writeSettingsIni(); }
    void cleanupTestCase() { removeSettingsIni(); }

    void overThePseudoTerminal()
    {
        Pty pty;
        MainWindow w;
        connectTo(w, pty.slavePath());
        // The coin changer's poll, ticks 10 to 12, the process's first MDB frame (the gap counts from 0); it flips the lamp.
        const QByteArray frame = QByteArray::fromHex("A55A0016020000000A0000000C00000B010B00130D0A");
        pty.write(frame);
        QVERIFY(waitUntil([&] { return w.lampOn; }, 10000));
        lastEnd = 12;
        expectView(w, {"green 0010 : M-> 0B 0B~POLL"});
        w.settings->comboBoxInterpret->setCurrentText("VSI");
        pty.write(frame);
        QVERIFY(waitUntil([&] { return !w.lampOn; }, 10000));
        expectView(w, {"green 0010 : M-> 0B 0B~POLL"});
    }
    void transactions_data();
    void transactions()
    {
        QFETCH(QStringList, steps);
        QFETCH(QStringList, lines);
        MainWindow w;
        for (const QString &step : steps)
            step == "switch" ? w.ui->actionTranslate->trigger()
                             : step == "poll" ? w.settings->ui->checkBoxPoll->toggle() : w.mdb->packageProcess(next(step));
        expectView(w, lines);
    }
};

void TestMdbWindow::transactions_data()
{
    QTest::addColumn<QStringList>("steps"); // as next() reads them; "switch" flips the interpret switch, "poll" the Poll box
    QTest::addColumn<QStringList>("lines");
    using L = QStringList;
    QTest::newRow("bill validator SETUP") << L{"M4 3131", "S2 01184000050201F40102FF0102050A143264C80000000000000000DB"}
        << L{"blue 0004 : M-> 31 31~SETUP", "blue 0002 : S-> 01 18 40 00 05 02 01 F4 01 02 FF 01 02 05 0A 14 32 64 C8"
            " 00 00 00 00 00 00 00 00 DB~Bill Validator Setup Information~Bill Validator Feature Level [1]"
            "~Country/Currency Code ISO 4217 [840]~Bill Scaling Factor [5]~Decimal Places [2]~Stacker Capacity [500]"
            "~Bill Security Levels [258]~Escrow Capability [Yes]~Bill Type Credits:^[01] [02] [05] [10] [20] [50]"
            " [100] [200] ^[00] [00] [00] [00] [00] [00] [00] [00] "};
    QTest::newRow("coin changer SETUP reply") << L{"M3 0909", "S2 0218400A0203000102050A143264C80000000000000000ED"}
        << L{"green 0003 : M-> 09 09~SETUP", "green 0002 : S-> 02 18 40 0A 02 03 00 01 02 05 0A 14 32 64 C8 00 00 00"
            " 00 00 00 00 00 ED~Changer setup information~Changer Feature Level [2]~Country/Currency Code ISO 4217"
            " [840]~Coin Scaling Factor [0a]~Decimal Places [2]~Coin Type Routing:^[0] [0] [0] [0] [0] [0] [0] [0] "
            "^[1] [1] [0] [0] [0] [0] [0] [0] ~Coin Type Credits:^[1] [2] [5] [10] [20] [50] [100] [200] ^[0] [0] [0]"
            " [0] [0] [0] [0] [0] "};
    QTest::newRow("cashless vend session, approval answering a POLL") << L{"M2 1212", "S2 030064FFFFFFFF01000064",
        "M2 1300003C000150", "M2 1212", "S2 05003C41", "M2 1302000116", "M2 130417"}
        << L{"brown 0002 : M-> 12 12~POLL", "brown 0002 : S-> 03 00 64 FF FF FF FF 01 00 00 64~Begin Session~Funds"
            " Available (scaled): 100~Payment Media ID: Unknown~Payment Type: 0x01~Payment Data: Z9=0, Z10=0",
            "brown 0002 : M-> 13 00 00 3C 00 01 50~Vend Request~Item Price (scaled): 60~Item Number: 1",
            "brown 0002 : M-> 12 12~POLL", "brown 0002 : S-> 05 00 3C 41~Vend Approved~Vend Amount (scaled): 60",
            "brown 0002 : M-> 13 02 00 01 16~Vend Success~Item Number: 1 (0x0001)",
            "brown 0002 : M-> 13 04 17~SESSION COMPLETE"};
    QTest::newRow("late reply stays red until the next command") << L{"M20 0B0B", "A9 00", "V1 00", "M1 0B0B"}
        << L{"green 0020 : M-> 0B 0B~POLL", "red 0009 : S-> 00~Peripheral ACK", "red 0001 : M-> 00~VMC ACK",
             "green 0001 : M-> 0B 0B~POLL"};
    QTest::newRow("Poll off hides POLL exchanges") << L{"poll", "M3 0B0B", "A2 00", "M7 0A0A", "A2 00", "poll", "M2 3333"}
        << L{"green 0007 : M-> 0A 0A~TUBE STATUS", "green 0002 : S-> 00~Peripheral ACK", "blue 0002 : M-> 33 33~POLL"};
    QTest::newRow("switch off: bytes only, colour kept") << L{"switch", "M2 0E0E", "M2 3030", "A8 00", "switch", "M2 0B0B"}
        << L{"red 0002 : M-> 0E 0E", "blue 0002 : M-> 30 30", "red 0008 : S-> 00", "green 0002 : M-> 0B 0B~POLL"};
}

QTEST_MAIN(TestMdbWindow)
#include "tst_mdbwindow.moc"
