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

enum Mark { NoMark, FirstMark, LastMark };

QByteArray next(quint32 gap, int direction, const char *dataHex, Mark mark)
{
    const QByteArray data = QByteArray::fromHex(dataHex);
    QByteArray bus;
    for (int i = 0; i < data.size(); ++i)
        bus += data.at(i) + QByteArray(1, char((mark == FirstMark && i == 0) || (mark == LastMark && i == data.size() - 1)));
    const quint32 start = lastEnd + gap;
    lastEnd = start + 1 + 2 * quint32(data.size());
    return busFrame(start, lastEnd, direction, 0, bus);
}

// The view must hold exactly these fragments, one append each.
void expectView(MainWindow &w, const QStringList &fragments)
{
    QTextBrowser expected;
    expected.setStyleSheet(w.ui->textBrowserParsed->styleSheet());
    for (const QString &f : fragments)
        expected.append(f);
    expected.ensurePolished();
    w.ui->textBrowserParsed->ensurePolished();
    // Line by line, so that a failure shows the line that differs.
    const QStringList got = w.ui->textBrowserParsed->toHtml().split('\n');
    const QStringList want = expected.toHtml().split('\n');
    for (int i = 0; i < qMin(got.size(), want.size()); ++i)
        QVERIFY2(got[i] == want[i], qPrintable("\n got: " + got[i] + "\nwant: " + want[i]));
    QCOMPARE(got.size(), want.size());
}

} // namespace

class TestMdbWindow : public QObject
{
    Q_OBJECT
private slots:
    void init() { writeSettingsIni(); }
    void cleanupTestCase() { removeSettingsIni(); }

    // First, while the process has seen no MDB frame: its gap counts from 0.
    void overThePseudoTerminal_data();
    void overThePseudoTerminal();
    void billValidatorSetupExchange();
    void coinChangerSetupReply();
    void cashlessVendSession();
    void lateReplyColour();
    void pollAndAckFilter();
    void switchOff();
};

void TestMdbWindow::billValidatorSetupExchange()
{
    MainWindow w;
    w.mdb->packageProcess(next(4, 0, "3131", FirstMark));
    w.mdb->packageProcess(next(2, 1, "01184000050201F40102FF0102050A143264C80000000000000000DB", LastMark));
    w.mdb->packageProcess(next(1, 0, "00", NoMark));
    expectView(w, {
        "<span style='color: blue;'>0004 : M-> 31 31<br>" + F + "SETUP</span>",
        "<span style='color: blue;'>0002 : S-> 01 18 40 00 05 02 01 F4 01 02 FF 01 02 05 0A 14 32 64 C8 00 00 00 00 00 "
        "00 00 00 DB<br>" + F + "Bill Validator Setup Information<br>" + F + "Bill Validator Feature Level [1]<br>" + F
            + "Country/Currency Code ISO 4217 [840]<br>" + F + "Bill Scaling Factor [5]<br>" + F + "Decimal Places [2]<br>"
            + F + "Stacker Capacity [500]<br>" + F + "Bill Security Levels [258]<br>" + F + "Escrow Capability [Yes]<br>"
            + F + "Bill Type Credits:<br>" + F + F + "[01] [02] [05] [10] [20] [50] [100] [200] <br>" + F + F
            + "[00] [00] [00] [00] [00] [00] [00] [00] </span>",
        "<span style='color: blue;'>0001 : M-> 00<br>" + F + "VMC ACK</span>",
    });
    QCOMPARE(int(w.mdb->lastCommand), 0x31);
}

void TestMdbWindow::coinChangerSetupReply()
{
    MainWindow w;
    w.mdb->packageProcess(next(3, 0, "0909", FirstMark));
    w.mdb->packageProcess(next(2, 1, "0218400A0203000102050A143264C80000000000000000ED", LastMark));
    expectView(w, {
        "<span style='color: green;'>0003 : M-> 09 09<br>" + F + "SETUP</span>",
        "<span style='color: green;'>0002 : S-> 02 18 40 0A 02 03 00 01 02 05 0A 14 32 64 C8 00 00 00 00 00 00 00 00 ED<br>"
            + F + "Changer setup information<br>" + F + "Changer Feature Level [2]<br>" + F
            + "Country/Currency Code ISO 4217 [840]<br>" + F + "Coin Scaling Factor [0a]<br>" + F + "Decimal Places [2]<br>"
            + F + "Coin Type Routing:<br>" + F + F + "[0] [0] [0] [0] [0] [0] [0] [0] <br>" + F + F
            + "[1] [1] [0] [0] [0] [0] [0] [0] <br>" + F + "Coin Type Credits:<br>" + F + F
            + "[1] [2] [5] [10] [20] [50] [100] [200] <br>" + F + F + "[0] [0] [0] [0] [0] [0] [0] [0] </span>",
    });
}

void TestMdbWindow::cashlessVendSession()
{
    MainWindow w;
    const char *session[][2] = {
        {"M", "1212"},                 // POLL
        {"S", "030064FFFFFFFF01000064"}, // Begin Session, funds 100
        {"V", "00"},
        {"M", "1300003C000150"},       // Vend Request, 60 for item 1
        {"A", "00"},
        {"M", "1212"},
        {"S", "05003C41"},             // Vend Approved, 60
        {"V", "00"},
        {"M", "1302000116"},          // Vend Success, item 1
        {"A", "00"},
        {"M", "130417"},               // Session Complete
        {"A", "00"},
        {"M", "1212"},
        {"S", "0707"},                 // End Session
        {"V", "00"},
    };
    for (const auto &m : session) {
        const char kind = m[0][0];
        w.mdb->packageProcess(next(2, kind == 'M' || kind == 'V' ? 0 : 1, m[1],
                                   kind == 'M' || kind == 'A' ? FirstMark : kind == 'S' ? LastMark : NoMark));
    }
    const QString poll = "<span style='color: brown;'>0002 : M-> 12 12<br>" + F + "POLL</span>";
    const QString vmcAck = "<span style='color: brown;'>0002 : M-> 00<br>" + F + "VMC ACK</span>";
    const QString ack = "<span style='color: brown;'>0002 : S-> 00<br>" + F + "Peripheral ACK</span>";
    expectView(w, {
        poll,
        "<span style='color: brown;'>0002 : S-> 03 00 64 FF FF FF FF 01 00 00 64<br>" + F + "Begin Session<br>" + F
            + "Funds Available (scaled): 100<br>" + F + "Payment Media ID: Unknown<br>" + F + "Payment Type: 0x01<br>" + F
            + "Payment Data: Z9=0, Z10=0</span>",
        vmcAck,
        "<span style='color: brown;'>0002 : M-> 13 00 00 3C 00 01 50<br>" + F + "Vend Request<br>" + F
            + "Item Price (scaled): 60<br>" + F + "Item Number: 1</span>",
        ack,
        poll,
        "<span style='color: brown;'>0002 : S-> 05 00 3C 41<br>" + F + "Vend Approved<br>" + F
            + "Vend Amount (scaled): 60</span>",
        vmcAck,
        "<span style='color: brown;'>0002 : M-> 13 02 00 01 16<br>" + F + "Vend Success<br>" + F
            + "Item Number: 1 (0x0001)</span>",
        ack,
        "<span style='color: brown;'>0002 : M-> 13 04 17<br>" + F + "SESSION COMPLETE</span>",
        ack,
        poll,
        "<span style='color: brown;'>0002 : S-> 07 07<br>" + F + "END SESSION</span>",
        vmcAck,
    });
}

void TestMdbWindow::lateReplyColour()
{
    MainWindow w;
    w.mdb->packageProcess(next(20, 0, "0B0B", FirstMark));
    w.mdb->packageProcess(next(9, 1, "00", FirstMark));
    w.mdb->packageProcess(next(1, 0, "00", NoMark));
    w.mdb->packageProcess(next(1, 0, "0B0B", FirstMark));
    w.mdb->packageProcess(next(5, 1, "00", FirstMark));
    expectView(w, {
        "<span style='color: green;'>0020 : M-> 0B 0B<br>" + F + "POLL</span>",
        "<span style='color: red;'>0009 : S-> 00<br>" + F + "Peripheral ACK</span>",
        "<span style='color: red;'>0001 : M-> 00<br>" + F + "VMC ACK</span>",
        "<span style='color: green;'>0001 : M-> 0B 0B<br>" + F + "POLL</span>",
        "<span style='color: green;'>0005 : S-> 00<br>" + F + "Peripheral ACK</span>",
    });
}

void TestMdbWindow::pollAndAckFilter()
{
    writeSettingsIni({{"MDBPoll", false}});
    MainWindow w;
    QVERIFY(!w.settings->ui->checkBoxPoll->isChecked());
    w.mdb->packageProcess(next(3, 0, "0B0B", FirstMark));
    w.mdb->packageProcess(next(2, 1, "00", FirstMark));
    w.mdb->packageProcess(next(7, 0, "0A0A", FirstMark));
    w.mdb->packageProcess(next(2, 1, "00", FirstMark));
    w.mdb->packageProcess(next(4, 0, "3333", FirstMark));
    w.mdb->packageProcess(next(1, 1, "00", FirstMark));
    // Ticking the box again shows the next POLL; the check box is read per frame.
    w.settings->ui->checkBoxPoll->setChecked(true);
    w.mdb->packageProcess(next(2, 0, "3333", FirstMark));
    expectView(w, {
        "<span style='color: green;'>0007 : M-> 0A 0A<br>" + F + "TUBE STATUS</span>",
        "<span style='color: green;'>0002 : S-> 00<br>" + F + "Peripheral ACK</span>",
        "<span style='color: blue;'>0002 : M-> 33 33<br>" + F + "POLL</span>",
    });
}

void TestMdbWindow::switchOff()
{
    MainWindow w;
    w.ui->actionTranslate->trigger();
    QVERIFY(!w.interpret);
    w.mdb->packageProcess(next(2, 0, "0E0E", FirstMark));
    w.mdb->packageProcess(next(2, 0, "3030", FirstMark));
    w.mdb->packageProcess(next(8, 1, "00", FirstMark));
    w.ui->actionTranslate->trigger();
    w.mdb->packageProcess(next(2, 0, "0B0B", FirstMark));
    expectView(w, {
        "<span style='color: red;'>0002 : M-> 0E 0E</span>",
        "<span style='color: blue;'>0002 : M-> 30 30</span>",
        "<span style='color: red;'>0008 : S-> 00</span>",
        "<span style='color: green;'>0002 : M-> 0B 0B<br>" + F + "POLL</span>",
    });
}

void TestMdbWindow::overThePseudoTerminal_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("rendered");
    QTest::newRow("MDB renders the frame") << 0 << true;
    QTest::newRow("VSI drops the MDB frame") << 1 << false;
    QTest::newRow("232 drops the MDB frame") << 3 << false;
}

void TestMdbWindow::overThePseudoTerminal()
{
    QFETCH(int, mode);
    QFETCH(bool, rendered);
    writeSettingsIni({{"mode", mode}});
    Pty pty;
    MainWindow w;
    connectTo(w, pty.slavePath());
    QVERIFY(w.settings->serialPort->isOpen());
    QCOMPARE(w.settings->comboBoxInterpret->currentText(), QString(mode == 0 ? "MDB" : mode == 1 ? "VSI" : "232"));
    pty.readAtLeast(10); // the mode command sent on open

    // The poll of the coin changer, start tick 10, end tick 12.
    pty.write(QByteArray::fromHex("A55A0016020000000A0000000C00000B010B00130D0A"));
    QVERIFY(waitUntil([&] { return w.lampOn; })); // the receiver took the frame
    if (!rendered) {
        QCOMPARE(w.ui->textBrowserParsed->toPlainText(), QString());
        return;
    }
    lastEnd = 12;
    expectView(w, {"<span style='color: green;'>0010 : M-> 0B 0B<br>" + F + "POLL</span>"});
}

QTEST_MAIN(TestMdbWindow)
#include "tst_mdbwindow.moc"
