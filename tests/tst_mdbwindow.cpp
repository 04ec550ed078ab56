// Whole MDB transactions through a real main window, as the receiver delivers them.
#include "testsupport.h"

#include "app/mainwindow.h"
#include "mdb/mdb.h"
#include "settings/settings.h"
#include "ui_mainwindow.h"
#include "ui_settings.h"

#include <QCheckBox>
#include <QComboBox>
#include <QTextBrowser>

namespace {

const QString F = "&nbsp;&nbsp;&nbsp;&nbsp;";

// The statics of packageProcess live for the whole process, so every frame
// this file sends goes through next(), which knows the last end tick.
quint32 lastEnd = 0;

// One step of a transaction: its kind, the gap before it and its data bytes ("M4 3131").
// M is a VMC command, S a peripheral's reply, V the VMC's ACK, A a peripheral's ACK.
QByteArray next(const QString &step)
{
    const QChar kind = step.at(0);
    const QByteArray data = QByteArray::fromHex(step.section(' ', 1).toLatin1());
    QByteArray bus;
    for (int i = 0; i < data.size(); ++i)
        bus += data.at(i) + QByteArray(1, char(((kind == 'M' || kind == 'A') && i == 0) || (kind == 'S' && i == data.size() - 1)));
    const quint32 start = lastEnd + step.section(' ', 0, 0).mid(1).toUInt();
    lastEnd = start + 1 + 2 * quint32(data.size());
    return busFrame(start, lastEnd, kind == 'S' || kind == 'A' ? 1 : 0, 0, bus);
}

// The view holds exactly these fragments, one append each; its font is not at stake, and line by line a failure shows the line.
void expectView(MainWindow &w, const QStringList &fragments)
{
    QTextBrowser expected;
    for (const QString &f : fragments)
        expected.append(f);
    QCOMPARE(w.ui->textBrowserParsed->toHtml().section("<p ", 1).split('\n'), expected.toHtml().section("<p ", 1).split('\n'));
}

} // namespace

class TestMdbWindow : public QObject
{
    Q_OBJECT
private slots:
    void init() { writeSettingsIni(); }
    void cleanupTestCase() { removeSettingsIni(); }

    // First, while the process has seen no MDB frame: its gap counts from 0.
    void overThePseudoTerminal();
    void transactions_data();
    void transactions();
};

void TestMdbWindow::overThePseudoTerminal()
{
    Pty pty;
    MainWindow w;
    connectTo(w, pty.slavePath());
    QCOMPARE(w.settings->comboBoxInterpret->currentText(), QString("MDB"));
    pty.readAtLeast(10); // the mode command sent on open

    // The poll of the coin changer, start tick 10, end tick 12; the lamp flips with every frame taken.
    const QByteArray frame = QByteArray::fromHex("A55A0016020000000A0000000C00000B010B00130D0A");
    pty.write(frame);
    QVERIFY(waitUntil([&] { return w.lampOn; }));
    lastEnd = 12;
    expectView(w, {"<span style='color: green;'>0010 : M-> 0B 0B<br>" + F + "POLL</span>"});

    // Once the combo shows VSI, the same frame is taken but not rendered.
    w.settings->comboBoxInterpret->setCurrentText("VSI");
    pty.write(frame);
    QVERIFY(waitUntil([&] { return !w.lampOn; }));
    expectView(w, {"<span style='color: green;'>0010 : M-> 0B 0B<br>" + F + "POLL</span>"});
}

// Steps as next() reads them; "switch" flips the interpret switch, "poll" the Poll check box.
void TestMdbWindow::transactions_data()
{
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<QStringList>("lines");

    QTest::newRow("bill validator SETUP exchange") << QStringList{"M4 3131", "S2 01184000050201F40102FF0102050A143264C80000000000000000DB", "V1 00"}
        << QStringList{"<span style='color: blue;'>0004 : M-> 31 31<br>" + F + "SETUP</span>",
            "<span style='color: blue;'>0002 : S-> 01 18 40 00 05 02 01 F4 01 02 FF 01 02 05 0A 14 32 64 C8 00 00 00 00 00 00 00 00 DB<br>" + F
                + "Bill Validator Setup Information<br>" + F + "Bill Validator Feature Level [1]<br>" + F + "Country/Currency Code ISO 4217 [840]<br>" + F
                + "Bill Scaling Factor [5]<br>" + F + "Decimal Places [2]<br>" + F + "Stacker Capacity [500]<br>" + F + "Bill Security Levels [258]<br>" + F
                + "Escrow Capability [Yes]<br>" + F + "Bill Type Credits:<br>" + F + F + "[01] [02] [05] [10] [20] [50] [100] [200] <br>" + F + F
                + "[00] [00] [00] [00] [00] [00] [00] [00] </span>",
            "<span style='color: blue;'>0001 : M-> 00<br>" + F + "VMC ACK</span>"};
    QTest::newRow("coin changer SETUP reply") << QStringList{"M3 0909", "S2 0218400A0203000102050A143264C80000000000000000ED"}
        << QStringList{"<span style='color: green;'>0003 : M-> 09 09<br>" + F + "SETUP</span>",
            "<span style='color: green;'>0002 : S-> 02 18 40 0A 02 03 00 01 02 05 0A 14 32 64 C8 00 00 00 00 00 00 00 00 ED<br>" + F
                + "Changer setup information<br>" + F + "Changer Feature Level [2]<br>" + F + "Country/Currency Code ISO 4217 [840]<br>" + F
                + "Coin Scaling Factor [0a]<br>" + F + "Decimal Places [2]<br>" + F + "Coin Type Routing:<br>" + F + F + "[0] [0] [0] [0] [0] [0] [0] [0] <br>"
                + F + F + "[1] [1] [0] [0] [0] [0] [0] [0] <br>" + F + "Coin Type Credits:<br>" + F + F + "[1] [2] [5] [10] [20] [50] [100] [200] <br>" + F + F
                + "[0] [0] [0] [0] [0] [0] [0] [0] </span>"};
    const QString poll = "<span style='color: brown;'>0002 : M-> 12 12<br>" + F + "POLL</span>";
    const QString vmcAck = "<span style='color: brown;'>0002 : M-> 00<br>" + F + "VMC ACK</span>";
    const QString ack = "<span style='color: brown;'>0002 : S-> 00<br>" + F + "Peripheral ACK</span>";
    QTest::newRow("cashless vend session") << QStringList{"M2 1212", "S2 030064FFFFFFFF01000064", "V2 00", "M2 1300003C000150", "A2 00", "M2 1212",
                                                          "S2 05003C41", "V2 00", "M2 1302000116", "A2 00", "M2 130417", "A2 00", "M2 1212", "S2 0707", "V2 00"}
        << QStringList{poll, "<span style='color: brown;'>0002 : S-> 03 00 64 FF FF FF FF 01 00 00 64<br>" + F + "Begin Session<br>" + F
                + "Funds Available (scaled): 100<br>" + F + "Payment Media ID: Unknown<br>" + F + "Payment Type: 0x01<br>" + F + "Payment Data: Z9=0, Z10=0</span>",
            vmcAck, "<span style='color: brown;'>0002 : M-> 13 00 00 3C 00 01 50<br>" + F + "Vend Request<br>" + F + "Item Price (scaled): 60<br>" + F
                + "Item Number: 1</span>",
            ack, poll, "<span style='color: brown;'>0002 : S-> 05 00 3C 41<br>" + F + "Vend Approved<br>" + F + "Vend Amount (scaled): 60</span>",
            vmcAck, "<span style='color: brown;'>0002 : M-> 13 02 00 01 16<br>" + F + "Vend Success<br>" + F + "Item Number: 1 (0x0001)</span>",
            ack, "<span style='color: brown;'>0002 : M-> 13 04 17<br>" + F + "SESSION COMPLETE</span>", ack, poll,
            "<span style='color: brown;'>0002 : S-> 07 07<br>" + F + "END SESSION</span>", vmcAck};
    QTest::newRow("late reply stays red until the next command") << QStringList{"M20 0B0B", "A9 00", "V1 00", "M1 0B0B", "A5 00"}
        << QStringList{"<span style='color: green;'>0020 : M-> 0B 0B<br>" + F + "POLL</span>",
            "<span style='color: red;'>0009 : S-> 00<br>" + F + "Peripheral ACK</span>", "<span style='color: red;'>0001 : M-> 00<br>" + F + "VMC ACK</span>",
            "<span style='color: green;'>0001 : M-> 0B 0B<br>" + F + "POLL</span>", "<span style='color: green;'>0005 : S-> 00<br>" + F + "Peripheral ACK</span>"};
    // The check box is read per frame: ticked again, the next POLL shows.
    QTest::newRow("Poll off hides POLLs and ACKs") << QStringList{"poll", "M3 0B0B", "A2 00", "M7 0A0A", "A2 00", "M4 3333", "A1 00", "poll", "M2 3333"}
        << QStringList{"<span style='color: green;'>0007 : M-> 0A 0A<br>" + F + "TUBE STATUS</span>",
            "<span style='color: green;'>0002 : S-> 00<br>" + F + "Peripheral ACK</span>", "<span style='color: blue;'>0002 : M-> 33 33<br>" + F + "POLL</span>"};
    QTest::newRow("switch off: bytes only, colour still chosen") << QStringList{"switch", "M2 0E0E", "M2 3030", "A8 00", "switch", "M2 0B0B"}
        << QStringList{"<span style='color: red;'>0002 : M-> 0E 0E</span>", "<span style='color: blue;'>0002 : M-> 30 30</span>",
            "<span style='color: red;'>0008 : S-> 00</span>", "<span style='color: green;'>0002 : M-> 0B 0B<br>" + F + "POLL</span>"};
}

void TestMdbWindow::transactions()
{
    QFETCH(QStringList, steps);
    QFETCH(QStringList, lines);
    MainWindow w;
    for (const QString &step : steps) {
        if (step == "switch")
            w.ui->actionTranslate->trigger();
        else if (step == "poll")
            w.settings->ui->checkBoxPoll->toggle();
        else
            w.mdb->packageProcess(next(step));
    }
    expectView(w, lines);
}

QTEST_MAIN(TestMdbWindow)
#include "tst_mdbwindow.moc"
