// MDB decoders and the window-free line builder (bytes in, exact HTML out), then whole transactions through a real
// main window, as the receiver delivers them.
#include "testsupport.h"

#include "mdb/bill.h"
#include "mdb/card.h"
#include "mdb/coin.h"
#include "mdb/mdb.h"

#include <vector>

namespace {

const QString F = "&nbsp;&nbsp;&nbsp;&nbsp;";
const QString FCC = "<span style='color: red;'>FCC err </span>";
const QString Z8 = "[0] [0] [0] [0] [0] [0] [0] [0] ";

using Decoder = QString (*)(const unsigned char *, int);

// A bus-data frame; its payload is each data byte followed by its mode byte.
QByteArray bus(quint32 start, quint32 end, int direction, const char *pairs)
{
    return busFrame(start, end, direction, 0, hx(pairs));
}
using Frames = QList<QByteArray>;

// A message after a gap; before/after: lastCommand and lastSubcommand. The colour starts gray, never set by MDB.
struct Message {
    int gap;
    const char *before, *modeBits, *data;
    QString text;
    const char *color, *after;
};

} // namespace

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

Q_DECLARE_METATYPE(Decoder)
Q_DECLARE_METATYPE(Message)

class TestMdb : public QObject
{
    Q_OBJECT
private slots:
    void init() { writeSettingsIni(); }
    void cleanupTestCase() { removeSettingsIni(); }

    void decoders_data()
    {
        QTest::addColumn<Decoder>("decoder");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *name, Decoder decoder, const QByteArray &bytes, const QString &expected) {
            QTest::newRow(name) << decoder << bytes << indented(expected);
        };

        // Coin changer: these decoders get the whole message, checksum included. The full SETUP reply is a window row.
        row("coin type rows from coin 15 down", &Coin::coinType, hx("0C0005000011"), "COIN TYPE~Coin Enable Status:^"
            + Z8 + "^[0] [0] [0] [0] [0] [1] [0] [1] ~Manual Dispense Enable Status:^" + Z8 + "^" + Z8);
        row("coin type, no manual mask", &Coin::coinType, hx("0C00000C"), "COIN TYPE~Coin Enable Status:^" + Z8 + "^" + Z8
            + "~Length error");
        row("feature enable lists set bits in order, ignores the high ones", &Coin::expansion, hx("0F01000000FFFF"),
            "EXPANSION / FEATURE ENABLE~Optional Features Enable:^Alternative Payout method^Extended Diagnostic command "
            "supported^Controlled Manual Fill and Payout commands supported^File Transport Layer (FTL) supported");
        row("tube counts are right-aligned to the widest", &Coin::tubeStatus, hx("8003C801000000000000000000000000000AFF"),
            "Changer tube status~Tube Full Status:^[1] [0] [0] [0] [0] [0] [0] [0] ^[0] [0] [0] [0] [0] [0] [1] [1] "
            "~Coin Counts for each tube:^[200] [  1] [  0] [  0] [  0] [  0] [  0] [  0] "
            "^[  0] [  0] [  0] [  0] [  0] [  0] [  0] [ 10] ");
        row("identification: UTF-8 text, BCD version, features in byte 32 alone", &Coin::identification,
            QByteArray("ABCS\xC3\xA9rie-00001MODEL-X 0001") + hx("9812FFFFFF00FF"), "VMC Command Code Sub-Command Changer "
            "Response Data (EXPANSION)~Manufacturer Code [ABC]~Serial Number [S\u00E9rie-00001]~Model #/Tuning Revision "
            "[MODEL-X 0001]~Software Version [9812]~Optional Features:^No optional features supported.");
        row("diagnostic: exact, main fallbacks, unknown mains, checksum pair unread", Coin::changerDiagnosticStatus,
            hx("01FF051014010F1016007777"), "Changer Diagnostic Status~Status Code [01 / ff]: Powering up"
            "~Status Code [05 / 10]: Manual Fill / Payout active~Status Code [14 / 01]: Unknown Dispenser Error"
            "~Status Code [0f / 10]: Unknown Main Status Code~Status Code [16 / 00]: Unknown Main Status Code");

        // Bill validator: replies without their checksum, commands between command byte and checksum.
        row("bill setup: telephone code 0F in full, escrow 01 is No", &Bill::setup,
            hx("020F2300050201F4010201000000000000000000000000000000FF"), "Bill Validator Setup Information"
            "~Bill Validator Feature Level [2]~Country/Currency Code International Telephone Code [1523]"
            "~Bill Scaling Factor [5]~Decimal Places [2]~Stacker Capacity [500]~Bill Security Levels [258]"
            "~Escrow Capability [No]~Bill Type Credits:^[00] [00] [00] [00] [00] [00] [00] [00] "
            "^[00] [00] [00] [00] [00] [00] [00] [255] ");
        row("bill poll: routing, type, attempts, status table ends, unknowns", &Bill::poll, hx("80FF405F00010C0D3F60"),
            "POLL Status~Bill Routing: BILL STACKED, Bill Type: 0~Bill Routing: TRANSFERRED FROM RECYCLER TO CASHBOX"
            ", Bill Type: 15~Attempts While Disabled: 0~Attempts While Disabled: 31~Unknown Status~Defective Motor"
            "~Possible Credited Bill Removal~Unknown Status~Unknown Status~Unknown Status");
        row("bill type disabled, escrow for 0", &Bill::billType, hx("00000001"),
            "BILL TYPE~Action: Bill Validator Disabled~Escrow Enabled Bill Types:^[0] ");

        row("setup config data, unknown level, unused format", &Card::setup, hx("000710020F"), "Setup Config Data"
            "~VMC Feature Level : Unknown Feature Level~Columns on Display : 16~Rows on Display : 2"
            "~Display Information : 0x0f~Display Type: 0x01~Display Format: Unused / Unassigned");
        row("setup unknown subcommand", &Card::setup, hx("02"), F + "Unknown Subcommand: 0x02");
        row("vend request, undefined item", &Card::vend, hx("000064FFFF"),
            "Vend Request~Item Price (scaled): 100~Item Number: Undefined / Not Implemented");
        row("vend success undefined item", &Card::vend, hx("02FFFF"), "Vend Success~Item Number: Undefined (FFFFh)");
        row("optional features: bit 1 always named, bits 10 up ignored", &Card::expansion, hx("04FFFFFE04"), "Expansion "
            "Optional Feature Bit Enable~Enabled Features:^16 bit monetary format^Enable multi currency / multi lingual"
            "^Allow 'Ask Begin Session' feature");
        row("request ID, Latin-1 text, BCD digits above 9", &Card::expansion,
            hx("00") + QByteArray("\xC4<ZSN0000000042MODEL-X 0001") + hx("AF99"), "Expansion Request ID~Manufacturer Code: "
            "\u00C4<Z~Serial Number: SN0000000042~Model Number: MODEL-X 0001~Software Version: 10.15.9.9");

        row("just reset, later messages ignored", &Card::poll, hx("00010218400102050B"), "Just Reset");
        row("reader config data", &Card::poll, hx("010218400102050B"), "Reader Config Data"
            "~Reader Feature Level [2] - Supports advanced features~ISO 4217 Currency Code [1840]~Scale Factor [1]"
            "~Decimal Places [2]~Application Maximum Response Time [5 s]~Miscellaneous Options:^Restore funds: Yes"
            "^Multivend capable: Yes^Has display: No^Supports VEND/CASH SALE: Yes");
        row("display request keeps 32 bytes", &Card::poll, hx("021E") + QByteArray("0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ"),
            "Display Request (02H)~Display Time: 3000 ms (30 \u00D7 0.1s units)"
            "~Display Data: 0123456789ABCDEFGHIJKLMNOPQRSTUV");
        row("begin session, nothing known yet", &Card::poll, hx("03FFFFFFFFFFFF010000"), "Begin Session"
            "~Funds Available: Not yet determined~Payment Media ID: Unknown~Payment Type: 0x01~Payment Data: Z9=0, Z10=0");
        row("vend approved with a token", &Card::poll, hx("05FFFF"), "Vend Approved~Vend Amount: Electronic token used");
    }
    void decoders()
    {
        QFETCH(Decoder, decoder);
        QFETCH(QByteArray, bytes);
        // A heap copy of exactly the message, so the sanitizer catches any read past it.
        std::vector<unsigned char> copy(bytes.begin(), bytes.end());
        QTEST(decoder(copy.data(), int(copy.size())), "expected");
    }
    void interpretor_data()
    {
        QTest::addColumn<Message>("message");
        const auto row = [](const char *name, const Message &message) { QTest::newRow(name) << message; };
        row("bad checksum marked first; no command is late", {100, "0000", "0100", "0B0C", FCC + "POLL", "green", "0B00"});
        row("unknown data; mode byte 2 is no mark", {0, "3100", "0200", "0000", "unknow data 0x00", "red", "3100"});
        row("unknown command clears lastCommand", {0, "0B00", "0100", "0E0E", "unknow command 0x0e", "red", "0000"});
        row("0x66 is no cashless 2 command", {0, "0B00", "010000", "66FF65", "unknow command 0x66", "red", "0000"});
        row("peripheral ACK 6 ticks late turns red", {6, "0B00", "01", "00", "Peripheral ACK", "red", "0B00"});
        row("other marked single byte is ignored", {99, "0B03", "01", "05", "", "gray", "0B03"});
        row("late reply turns red", {6, "0B00", "0001", "0B0B", "JUST RESET", "red", "0B00"});
        row("reply with bad checksum still decoded", {0, "0B00", "0001", "0B0C", FCC + "JUST RESET", "gray", "0B00"});
        row("cashless 2 command: no text, magenta", {0, "0000", "0100", "6262", "", "magenta", "6200"});
        row("EXPANSION unknown", {0, "0000", "010000", "0FFA09", "EXPANSION / unknow subcommand 0xfa", "red", "0FFA"});
        row("EXPANSION alone decodes no reply", {0, "0005", "01", "0F", FCC + "EXPANSION /~Length error", "green", "0FFF"});
        row("diagnostic reply", {1, "0F05", "000001", "030003",
            "Changer Diagnostic Status~Status Code [03 / 00]: OK - Fully operational", "gray", "0F05"});
        row("bill SECURITY: the bytes between command and checksum", {0, "0000", "01000000", "328005B7",
            "SECURITY~Bill Types with High Security:^[0] [2] [15] ", "blue", "3200"});
        row("bill ESCROW", {0, "0000", "010000", "350136", "Escrow Status~Action: Stack the bill", "blue", "3500"});
        row("bill POLL reply", {1, "3300", "0001", "0909", "POLL Status~Validator Disabled", "gray", "3300"});
        row("bill STACKER reply", {2, "3600", "000001", "800080",
            "STACKER Status~Stacker Full Flag: Yes~Number of Bills in Stacker: 0", "gray", "3600"});
        row("empty message changes nothing", {40, "1203", "", "", "Length error", "gray", "1203"});
    }
    void interpretor()
    {
        QFETCH(Message, message);
        MDB mdb(nullptr);
        mdb.lastCommand = static_cast<unsigned char>(hx(message.before).at(0));
        mdb.lastSubcommand = static_cast<unsigned char>(hx(message.before).at(1));
        mdb.color = "gray";
        mdb.gap = message.gap;
        QCOMPARE(mdb.interpretor(hx(message.modeBits), hx(message.data)), indented(message.text));
        QCOMPARE(mdb.color, QString(message.color));
        QCOMPARE(QString::asprintf("%02X%02X", mdb.lastCommand, mdb.lastSubcommand), QString(message.after));
    }
    // Frames through the line builder from program start; "-" marks a hidden frame.
    void renderLine_data()
    {
        QTest::addColumn<Frames>("frames");
        QTest::addColumn<QString>("unchecked");
        QTest::addColumn<QStringList>("lines");

        QTest::newRow("gaps: padded, in full, negative, across the wrap; VMC ACK, RET and NAK")
            << Frames{bus(7, 10, 0, "0000"), bus(12355, 12356, 0, "AA00"), bus(12351, 0xFFFFFFF0u, 0, "FF00"),
                      bus(3, 4, 0, "0000")}
            << "" << QStringList{span("red", "0007 : M-> 00~VMC ACK"), span("red", "12345 : M-> AA~VMC RET"),
                                 span("red", "-005 : M-> FF~VMC NAK"), span("red", "0019 : M-> 00~VMC ACK")};
        // The first 00 is no POLL's ACK; the hidden POLL moves the tick but leaves lastCommand for the reply.
        QTest::newRow("Poll and Bill off hide a POLL and 30 30, not the reply after the POLL")
            << Frames{bus(3, 4, 1, "0001"), bus(10, 11, 0, "31013100"), bus(12, 13, 0, "33013300"),
                      bus(14, 15, 0, "30013000"), bus(16, 17, 1, "00000001")} << "poll,bill"
            << QStringList{span("black", "0003 : S-> 00~Peripheral ACK"), span("blue", "0006 : M-> 31 31~SETUP"), "-", "-",
                           span("blue", "0001 : S-> 00 00~Bill Validator Setup Information<br>Length error")};
        QTest::newRow("Coin and Card off hide the short RESETs only; a command without text")
            << Frames{bus(1, 2, 0, "08010800"), bus(3, 4, 0, "080108000800"), bus(5, 6, 0, "10011000"),
                      bus(7, 8, 0, "60016000"), bus(9, 10, 0, "30013000"), bus(11, 12, 0, "36013600")}
            << "coin,card" << QStringList{"-", span("green", "0001 : M-> 08 08 08~" + FCC + "RESET"), "-", "-",
                                          span("blue", "0001 : M-> 30 30~RESET"), span("blue", "0001 : M-> 36 36")};
        QTest::newRow("empty and odd payloads; a too short frame moves no tick; direction 7 is a peripheral; ACK in time")
            << Frames{bus(2, 3, 0, ""), hx("A55A000E02000000"), bus(5, 6, 0, "0000"), bus(8, 9, 0, "0B010B"),
                      bus(14, 15, 7, "0001")}
            << "" << QStringList{span("black", "0002 : M-> ~Length error"), "-", span("black", "0002 : M-> 00~VMC ACK"),
                                 span("green", "0002 : M-> 0B 0B~POLL"), span("green", "0005 : S-> 00~Peripheral ACK")};
        QTest::newRow("a %1 in decoded text takes the next arg, as the log format always did")
            << Frames{bus(1, 2, 0, "12011200"), bus(3, 4, 1, "02000A00250031006201")} << ""
            << QStringList{span("brown", "0001 : M-> 12 12~POLL"), span(F, "0001 : %6 02 0A 25 31 62<br>S->Display Request "
                           "(02H)~Display Time: 1000 ms (10 \u00D7 0.1s units)~Display Data: brown")};
    }
    void renderLine()
    {
        QFETCH(Frames, frames);
        QFETCH(QString, unchecked);
        QFETCH(QStringList, lines);
        QCOMPARE(frames.size(), lines.size());

        MDB mdb(nullptr);
        const auto on = [&](const char *box) { return !unchecked.contains(box); };
        const MDB::Filters f{on("poll"), on("coin"), on("bill"), on("card")};
        quint32 lastTickEnd = 0;
        int lastCmd = 8888;
        for (int i = 0; i < frames.size(); ++i) {
            const QString got = mdb.renderLine(frames[i], f, true, lastTickEnd, lastCmd);
            QCOMPARE(got.isNull() ? "-" : got, lines[i]);
        }
    }

    void transactions_data()
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
    void transactions()
    {
        QFETCH(QStringList, steps);
        QFETCH(QStringList, lines);
        MainWindow w;
        for (const QString &step : steps)
            step == "switch" ? w.ui->actionTranslate->trigger()
                             : step == "poll" ? w.settings->ui->checkBoxPoll->toggle() : w.mdb->packageProcess(next(step));
        for (QString &line : lines)
            line = coloured(line);
        compareView(w.ui->textBrowserParsed, lines);
    }
};

QTEST_MAIN(TestMdb)
#include "tst_mdb.moc"
