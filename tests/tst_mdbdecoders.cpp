// MDB decoders and the window-free line builder: bytes in, exact HTML out.
#include "testsupport.h"

#include "mdb/bill.h"
#include "mdb/card.h"
#include "mdb/coin.h"
#include "mdb/mdb.h"

#include <cstring>
#include <memory>

namespace {

const QString F = "&nbsp;&nbsp;&nbsp;&nbsp;";
const QString L = "&nbsp;&nbsp;&nbsp;&nbsp;&nbsp;&nbsp;&nbsp;&nbsp;";
const QString FCC = "<span style='color: red;'>FCC err </span>";
const QString Z8 = "[0] [0] [0] [0] [0] [0] [0] [0] ";
const QString T = QString::fromUtf8("\u00D7");

QByteArray hx(const char *hex)
{
    return QByteArray::fromHex(hex);
}

using Decoder = QString (*)(const unsigned char *, int);
const Decoder diagnostic = Coin::changerDiagnosticStatus;

// The decoder gets a heap copy of exactly the message, so the sanitizer
// catches any read past it.
QString decode(Decoder decoder, const QByteArray &bytes)
{
    std::unique_ptr<unsigned char[]> copy(new unsigned char[size_t(bytes.size())]);
    memcpy(copy.get(), bytes.constData(), size_t(bytes.size()));
    return decoder(copy.get(), int(bytes.size()));
}

// A bus-data frame whose data bytes carry a mode bit on the first or the last byte.
enum Mark { NoMark, FirstMark, LastMark };
QByteArray mdbFrame(quint32 start, quint32 end, int direction, const char *dataHex, Mark mark)
{
    const QByteArray data = hx(dataHex);
    QByteArray bus;
    for (int i = 0; i < data.size(); ++i)
        bus += data.at(i) + QByteArray(1, char((mark == FirstMark && i == 0) || (mark == LastMark && i == data.size() - 1)));
    return busFrame(start, end, direction, 0, bus);
}

} // namespace

Q_DECLARE_METATYPE(Decoder)

class TestMdbDecoders : public QObject
{
    Q_OBJECT
private slots:
    void decoders_data();
    void decoders();
    void interpretor_data();
    void interpretor();
    void renderLine_data();
    void renderLine();
};

void TestMdbDecoders::decoders_data()
{
    QTest::addColumn<Decoder>("decoder");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("expected");

    // Coin changer: these decoders get the whole message, checksum included.
    QTest::newRow("coin type rows run from coin 15 down to 0") << &Coin::coinType << hx("0C0005000011") << "COIN TYPE<br>" + F + "Coin Enable Status:<br>"
        + L + Z8 + "<br>" + L + "[0] [0] [0] [0] [0] [1] [0] [1] <br>" + F + "Manual Dispense Enable Status:<br>" + L + Z8 + "<br>" + L + Z8;
    QTest::newRow("coin type without manual mask shows what is there") << &Coin::coinType << hx("0C800111") << "COIN TYPE<br>" + F
        + "Coin Enable Status:<br>" + L + "[1] [0] [0] [0] [0] [0] [0] [0] <br>" + L + "[0] [0] [0] [0] [0] [0] [0] [1] <br>" + F + "Length error";
    QTest::newRow("coin type without fields") << &Coin::coinType << hx("0C") << "COIN TYPE<br>" + F + "Length error";
    QTest::newRow("expansion unknown sub-command in lower-case hex") << &Coin::expansion << hx("0FFA09") << "EXPANSION / unknow subcommand 0xfa";
    QTest::newRow("feature enable lists set bits in order") << &Coin::expansion << hx("0F010000000D1D") << "EXPANSION / FEATURE ENABLE<br>" + F
        + "Optional Features Enable:<br>" + L + "Alternative Payout method<br>" + L + "Controlled Manual Fill and Payout commands supported<br>" + L
        + "File Transport Layer (FTL) supported";
    QTest::newRow("feature enable ignores the high bits") << &Coin::expansion << hx("0F01000000F000")
        << "EXPANSION / FEATURE ENABLE<br>" + F + "Optional Features Enable:<br>" + L + "No features enabled.";
    QTest::newRow("feature enable one byte short") << &Coin::expansion << hx("0F01000000") << "EXPANSION / FEATURE ENABLE<br>" + F + "Length error";
    QTest::newRow("setup reply: telephone code 0F in full, routing from coin 0") << &Coin::setupReply
        << hx("020F2301000001000000000000000000000000000000FF00") << "Changer setup information<br>" + F + "Changer Feature Level [2]<br>" + F
            + "Country/Currency Code International Telephone Code [1523]<br>" + F + "Coin Scaling Factor [01]<br>" + F + "Decimal Places [0]<br>"
            + F + "Coin Type Routing:<br>" + L + "[1] [0] [0] [0] [0] [0] [0] [0] <br>" + L + Z8 + "<br>" + F + "Coin Type Credits:<br>" + L + Z8
            + "<br>" + L + "[0] [0] [0] [0] [0] [0] [0] [255] ";
    QTest::newRow("setup reply one byte short adds nothing") << &Coin::setupReply << QByteArray(23, 1) << "";
    QTest::newRow("setup reply one byte long adds nothing") << &Coin::setupReply << QByteArray(25, 1) << "";
    QTest::newRow("tube counts are right-aligned to the widest") << &Coin::tubeStatus << hx("8003C801000000000000000000000000000AFF")
        << "Changer tube status<br>" + F + "Tube Full Status:<br>" + L + "[1] [0] [0] [0] [0] [0] [0] [0] <br>" + L + "[0] [0] [0] [0] [0] [0] [1] [1] <br>"
            + F + "Coin Counts for each tube:<br>" + L + "[200] [  1] [  0] [  0] [  0] [  0] [  0] [  0] <br>" + L
            + "[  0] [  0] [  0] [  0] [  0] [  0] [  0] [ 10] ";
    QTest::newRow("tube status without counts") << &Coin::tubeStatus << hx("000305") << "Changer tube status<br>" + F
        + "Tube Full Status:<br>" + L + Z8 + "<br>" + L + "[0] [0] [0] [0] [0] [0] [1] [1] <br>" + F + "Length error";
    QTest::newRow("tube status of one byte") << &Coin::tubeStatus << hx("00") << "Changer tube status<br>" + F + "Length error";
    QTest::newRow("identification: text fields, BCD version, features") << &Coin::identification
        << QByteArray("ABCSN0000000042MODEL-X 0001") + hx("98120000000300") << "VMC Command Code Sub-Command Changer Response Data (EXPANSION)<br>"
            + F + "Manufacturer Code [ABC]<br>" + F + "Serial Number [SN0000000042]<br>" + F + "Model #/Tuning Revision [MODEL-X 0001]<br>" + F
            + "Software Version [9812]<br>" + F + "Optional Features:<br>" + L + "Alternative Payout method<br>" + L + "Extended Diagnostic command supported";
    QTest::newRow("identification without features, UTF-8 serial") << &Coin::identification
        << QByteArray("ABCS\xC3\xA9rie-00001MODEL-X 0001") + hx("01020000000000") << "VMC Command Code Sub-Command Changer Response Data (EXPANSION)<br>"
            + F + "Manufacturer Code [ABC]<br>" + F + QString::fromUtf8("Serial Number [S\u00E9rie-00001]<br>") + F + "Model #/Tuning Revision [MODEL-X 0001]<br>"
            + F + "Software Version [0102]<br>" + F + "Optional Features:<br>" + L + "No optional features supported.";
    QTest::newRow("identification one byte short adds nothing") << &Coin::identification << QByteArray(33, 'A') << "";
    QTest::newRow("diagnostic: exact codes, main-code fallbacks, unknown mains, odd byte ignored") << diagnostic
        << hx("01FF05100599100311AA150414010F10160000007777") << "Changer Diagnostic Status<br>" + F + "Status Code [01 / ff]: Powering up<br>" + F
            + "Status Code [05 / 10]: Manual Fill / Payout active<br>" + F + "Status Code [05 / 99]: Unknown Sub-code<br>" + F
            + "Status Code [10 / 03]: Low line voltage detected<br>" + F + "Status Code [11 / aa]: Unknown Discriminator Error<br>" + F
            + "Status Code [15 / 04]: Sunlight on tube sensors<br>" + F + "Status Code [14 / 01]: Unknown Dispenser Error<br>" + F
            + "Status Code [0f / 10]: Unknown Main Status Code<br>" + F + "Status Code [16 / 00]: Unknown Main Status Code<br>" + F
            + "Status Code [00 / 00]: Unknown Main Status Code";
    QTest::newRow("diagnostic of two bytes is the heading alone") << diagnostic << hx("0303") << "Changer Diagnostic Status";

    // Bill validator: replies without their checksum, commands between command byte and checksum.
    QTest::newRow("bill setup 10 is an ISO code, escrow 01 is No") << &Bill::setup << hx("02100000050201F4010201000000000000000000000000000000FF")
        << "Bill Validator Setup Information<br>" + F + "Bill Validator Feature Level [2]<br>" + F + "Country/Currency Code ISO 4217 [000]<br>" + F
            + "Bill Scaling Factor [5]<br>" + F + "Decimal Places [2]<br>" + F + "Stacker Capacity [500]<br>" + F + "Bill Security Levels [258]<br>" + F
            + "Escrow Capability [No]<br>" + F + "Bill Type Credits:<br>" + L + "[00] [00] [00] [00] [00] [00] [00] [00] <br>" + L
            + "[00] [00] [00] [00] [00] [00] [00] [255] ";
    QTest::newRow("bill setup of 26 bytes") << &Bill::setup << QByteArray(26, 1) << "Bill Validator Setup Information<br>Length error";
    QTest::newRow("bill setup of 28 bytes") << &Bill::setup << QByteArray(28, 1) << "Bill Validator Setup Information<br>Length error";
    QTest::newRow("bill poll without bytes is no activity") << &Bill::poll << QByteArray() << "POLL Status<br>" + F + "ACK (No activity)";
    QTest::newRow("bill poll routing and type from the bits") << &Bill::poll << hx("80911AE6FF") << "POLL Status<br>" + F
        + "Bill Routing: BILL STACKED, Bill Type: 0<br>" + F + "Bill Routing: ESCROW POSITION, Bill Type: 1<br>" + F + "Unknown Status<br>" + F
        + "Bill Routing: MANUAL DISPENSE, Bill Type: 6<br>" + F + "Bill Routing: TRANSFERRED FROM RECYCLER TO CASHBOX, Bill Type: 15";
    QTest::newRow("bill poll attempts, status table ends, unknowns") << &Bill::poll << hx("405F00010C0D3F607F") << "POLL Status<br>" + F
        + "Attempts While Disabled: 0<br>" + F + "Attempts While Disabled: 31<br>" + F + "Unknown Status<br>" + F + "Defective Motor<br>" + F
        + "Possible Credited Bill Removal<br>" + F + "Unknown Status<br>" + F + "Unknown Status<br>" + F + "Unknown Status<br>" + F + "Unknown Status";
    QTest::newRow("bill poll of 17 bytes") << &Bill::poll << QByteArray(17, 9) << "POLL Status<br>" + F + "Length error";
    QTest::newRow("stacker count uses fifteen bits") << &Bill::stacker << hx("7FFF")
        << "STACKER Status<br>" + F + "Stacker Full Flag: No<br>" + F + "Number of Bills in Stacker: 32767";
    QTest::newRow("stacker of three bytes") << &Bill::stacker << hx("800000") << "STACKER Status<br>" + F + "Length error";
    QTest::newRow("security lists bits from 0") << &Bill::security << hx("8005") << "SECURITY<br>" + F + "Bill Types with High Security:<br>" + L + "[0] [2] [15] ";
    QTest::newRow("security without bits") << &Bill::security << hx("0000") << "SECURITY<br>" + F + "Bill Types with High Security:<br>" + L;
    QTest::newRow("bill type disabled, escrow for 0") << &Bill::billType << hx("00000001")
        << "BILL TYPE<br>" + F + "Action: Bill Validator Disabled<br>" + F + "Escrow Enabled Bill Types:<br>" + L + "[0] ";
    QTest::newRow("bill type all enabled, escrow disabled") << &Bill::billType << hx("FFFF0000") << "BILL TYPE<br>" + F + "Enabled Bill Types:<br>" + L
        + "[0] [1] [2] [3] [4] [5] [6] [7] [8] [9] [10] [11] [12] [13] [14] [15] <br>" + F + "Action: Escrow are disabled";
    QTest::newRow("bill type of two bytes") << &Bill::billType << hx("FFFF") << "BILL TYPE<br>" + F + "Length error";
    QTest::newRow("escrow 00 returns") << &Bill::escrow << hx("00") << "Escrow Status<br>" + F + "Action: Return bill in escrow position";
    QTest::newRow("escrow odd stacks") << &Bill::escrow << hx("03") << "Escrow Status<br>" + F + "Action: Stack the bill";
    QTest::newRow("escrow other even is reserved") << &Bill::escrow << hx("02") << "Escrow Status<br>" + F + "Action: Invalid / Reserved value";
    QTest::newRow("escrow without byte") << &Bill::escrow << QByteArray() << "Escrow Status<br>" + F + "Length error";

    // Cashless device, VMC commands.
    QTest::newRow("setup config data") << &Card::setup << hx("0002100209") << "Setup Config Data<br>" + F
        + "VMC Feature Level : 2 VMC capable and willing to perform advanced features<br>" + F + "Columns on Display : 16<br>" + F
        + "Rows on Display : 2<br>" + F + "Display Information : 0x09<br>" + F + "Display Type: 0x01<br>" + F + "Display Format: Full ASCII";
    QTest::newRow("setup config data, unknown level, unused format") << &Card::setup << hx("0007000007") << "Setup Config Data<br>" + F
        + "VMC Feature Level : Unknown Feature Level<br>" + F + "Columns on Display : 0<br>" + F + "Rows on Display : 0<br>" + F
        + "Display Information : 0x07<br>" + F + "Display Type: 0x00<br>" + F + "Display Format: Unused / Unassigned";
    QTest::newRow("setup config data too short") << &Card::setup << hx("00021002") << "Setup Config Data<br>" + F + "Length error";
    QTest::newRow("setup prices unknown") << &Card::setup << hx("01FFFF0000")
        << "Setup Max/Min Prices<br>" + F + "Maximum Price: Unknown<br>" + F + "Minimum Price: Unknown";
    QTest::newRow("setup prices scaled") << &Card::setup << hx("0100C8000A")
        << "Setup Max/Min Prices<br>" + F + "Maximum Price (scaled): 200<br>" + F + "Minimum Price (scaled): 10";
    QTest::newRow("setup unknown subcommand") << &Card::setup << hx("02") << F + "Unknown Subcommand: 0x02";
    QTest::newRow("vend request, undefined item") << &Card::vend << hx("000064FFFF")
        << "Vend Request<br>" + F + "Item Price (scaled): 100<br>" + F + "Item Number: Undefined / Not Implemented";
    QTest::newRow("vend request too short") << &Card::vend << hx("000100") << "Vend Request<br>" + F + "Length error";
    QTest::newRow("vend cancel") << &Card::vend << hx("01") << "VEND CANCEL";
    QTest::newRow("vend success item in hex") << &Card::vend << hx("02ABCD") << "Vend Success<br>" + F + "Item Number: 43981 (0xabcd)";
    QTest::newRow("vend success undefined item") << &Card::vend << hx("02FFFF") << "Vend Success<br>" + F + "Item Number: Undefined (FFFFh)";
    QTest::newRow("vend failure has no decoder") << &Card::vend << hx("03") << F + "Unknown Subcommand: 0x03";
    QTest::newRow("optional features: bit 1 always named, bits 2 to 9, bits 10 up ignored") << &Card::expansion << hx("04FFFFFFFC")
        << "Expansion Optional Feature Bit Enable<br>" + F + "Enabled Features:<br>" + L + "16 bit monetary format<br>" + L
            + "Enable multi currency / multi lingual<br>" + L + "Enable negative vend<br>" + L + "Enable data entry<br>" + L + "Enable 'Always Idle' state<br>"
            + L + "Allow 'Remote Vend' feature<br>" + L + "Allow 'Basket / Partial Refund / Options Price' feature<br>" + L + "Allow 'Coupon' feature<br>"
            + L + "Allow 'Ask Begin Session' feature";
    QTest::newRow("request ID, Latin-1 text, BCD digits above 9") << &Card::expansion << hx("00") + QByteArray("\xC4<ZSN0000000042MODEL-X 0001") + hx("AF99")
        << "Expansion Request ID<br>" + F + QString::fromUtf8("Manufacturer Code: \u00C4<Z<br>") + F + "Serial Number: SN0000000042<br>" + F
            + "Model Number: MODEL-X 0001<br>" + F + "Software Version: 10.15.9.9";
    QTest::newRow("request ID of 29 bytes") << &Card::expansion << hx("00") + QByteArray(28, 'A') << "Expansion Request ID<br>" + F + "Length error";

    // Cashless device, reader replies to POLL.
    QTest::newRow("just reset, later messages ignored") << &Card::poll << hx("00010218400102050B") << "Just Reset";
    QTest::newRow("vend denied") << &Card::poll << hx("06") << "VEND DENIED";
    QTest::newRow("code 0b has no decoder") << &Card::poll << hx("0B") << F + "Unknown Subcommand: 0x0b";
    QTest::newRow("reader config data") << &Card::poll << hx("010218400102050B") << "Reader Config Data<br>" + F
        + "Reader Feature Level [2] - Supports advanced features<br>" + F + "ISO 4217 Currency Code [1840]<br>" + F + "Scale Factor [1]<br>" + F
        + "Decimal Places [2]<br>" + F + "Application Maximum Response Time [5 s]<br>" + F + "Miscellaneous Options:<br>" + L + "Restore funds: Yes<br>"
        + L + "Multivend capable: Yes<br>" + L + "Has display: No<br>" + L + "Supports VEND/CASH SALE: Yes";
    QTest::newRow("reader config data, telephone code, options off") << &Card::poll << hx("01070FFF0A0300F0") << "Reader Config Data<br>" + F
        + "Reader Feature Level [7] - Unknown feature level<br>" + F + "International Telephone Code [0fff]<br>" + F + "Scale Factor [10]<br>" + F
        + "Decimal Places [3]<br>" + F + "Application Maximum Response Time [0 s]<br>" + F + "Miscellaneous Options:<br>" + L + "Restore funds: No<br>"
        + L + "Multivend capable: No<br>" + L + "Has display: No<br>" + L + "Supports VEND/CASH SALE: No";
    QTest::newRow("reader config data of 7 bytes") << &Card::poll << hx("01021840010205") << "Reader Config Data<br>" + F + "Length error";
    QTest::newRow("display request keeps 32 text bytes") << &Card::poll << hx("021E") + QByteArray("0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ!?<>")
        << "Display Request (02H)<br>" + F + "Display Time: 3000 ms (30 " + T + " 0.1s units)<br>" + F + "Display Data: 0123456789ABCDEFGHIJKLMNOPQRSTUV";
    QTest::newRow("display request without text") << &Card::poll << hx("021E") << "Display Request (02H)<br>" + F + "Length error";
    QTest::newRow("begin session, nothing known yet") << &Card::poll << hx("03FFFFFFFFFFFF010000") << "Begin Session<br>" + F
        + "Funds Available: Not yet determined<br>" + F + "Payment Media ID: Unknown<br>" + F + "Payment Type: 0x01<br>" + F + "Payment Data: Z9=0, Z10=0";
    QTest::newRow("begin session, max funds") << &Card::poll << hx("03FFFE0000002A00FF07") << "Begin Session<br>" + F
        + "Funds Available: Max (FFFEh)<br>" + F + "Payment Media ID: 0x0000002a<br>" + F + "Payment Type: 0x00<br>" + F + "Payment Data: Z9=255, Z10=7";
    QTest::newRow("begin session of level 1 is too short") << &Card::poll << hx("030064") << "Begin Session<br>" + F + "Length error";
    QTest::newRow("vend approved with a token") << &Card::poll << hx("05FFFF") << "Vend Approved<br>" + F + "Vend Amount: Electronic token used";
    QTest::newRow("peripheral ID") << &Card::poll << hx("09") + QByteArray("ABCSN0000000042MODEL-X 0001") + hx("1234") << "Peripheral ID<br>" + F
        + "Manufacturer Code: ABC<br>" + F + "Serial Number: SN0000000042<br>" + F + "Model Number: MODEL-X 0001<br>" + F + "Software Version: 1.2.3.4";
}

void TestMdbDecoders::decoders()
{
    QFETCH(Decoder, decoder);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, expected);
    QCOMPARE(decode(decoder, bytes), expected);
}

// One message against a preset interpreter state: text, colour and state after it.
void TestMdbDecoders::interpretor_data()
{
    // lastCommand and lastSubcommand before and after; the colour starts gray, which the interpreter never sets.
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<int>("gap");
    QTest::addColumn<QByteArray>("modeBits");
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("color");
    QTest::addColumn<QByteArray>("after");

    QTest::newRow("coin POLL is green whatever its gap") << hx("0000") << 100 << hx("0100") << hx("0B0B") << "POLL" << "green" << hx("0B00");
    QTest::newRow("wrong checksum marked before the name") << hx("0000") << 0 << hx("0100") << hx("0B0C") << FCC + "POLL" << "green" << hx("0B00");
    QTest::newRow("lone command byte has no checksum") << hx("0000") << 0 << hx("01") << hx("0B") << FCC + "POLL" << "green" << hx("0B00");
    QTest::newRow("mode byte 2 does not count as set") << hx("3100") << 0 << hx("0200") << hx("0B0B") << "unknow data 0x0b" << "red" << hx("3100");
    QTest::newRow("unknown command clears lastCommand") << hx("0B00") << 0 << hx("0100") << hx("0E0E") << "unknow command 0x0e" << "red" << hx("0000");
    QTest::newRow("0x66 is no cashless 2 command") << hx("0B00") << 0 << hx("010000") << hx("66FF65") << "unknow command 0x66" << "red" << hx("0000");
    QTest::newRow("peripheral ACK in time keeps the colour") << hx("0B00") << 5 << hx("01") << hx("00") << "Peripheral ACK" << "gray" << hx("0B00");
    QTest::newRow("peripheral ACK 6 ticks late turns red") << hx("0B00") << 6 << hx("01") << hx("00") << "Peripheral ACK" << "red" << hx("0B00");
    QTest::newRow("other marked single byte is ignored") << hx("0B03") << 99 << hx("01") << hx("05") << "" << "gray" << hx("0B03");
    QTest::newRow("VMC RET") << hx("3100") << 1 << hx("00") << hx("AA") << "VMC RET" << "gray" << hx("3100");
    QTest::newRow("late VMC NAK turns red") << hx("3100") << 7 << hx("00") << hx("FF") << "VMC NAK" << "red" << hx("3100");
    QTest::newRow("unmarked two bytes are unknown data") << hx("3100") << 0 << hx("0000") << hx("0000") << "unknow data 0x00" << "red" << hx("3100");
    QTest::newRow("changer JUST RESET") << hx("0B00") << 2 << hx("0001") << hx("0B0B") << "JUST RESET" << "gray" << hx("0B00");
    QTest::newRow("other POLL replies add nothing") << hx("0B00") << 2 << hx("000001") << hx("010203") << "" << "gray" << hx("0B00");
    QTest::newRow("late reply turns red") << hx("0B00") << 6 << hx("0001") << hx("0B0B") << "JUST RESET" << "red" << hx("0B00");
    QTest::newRow("reply with bad checksum still decoded") << hx("0B00") << 0 << hx("0001") << hx("0B0C") << FCC + "JUST RESET" << "gray" << hx("0B00");
    QTest::newRow("reply before any command: checksum only") << hx("0000") << 0 << hx("00000001") << hx("01020307") << FCC << "gray" << hx("0000");
    QTest::newRow("cashless 2 command: no text, magenta") << hx("0000") << 0 << hx("0100") << hx("6262") << "" << "magenta" << hx("6200");
    QTest::newRow("coin DISPENSE named") << hx("0000") << 0 << hx("010000") << hx("0D121F") << "DISPENSE" << "green" << hx("0D00");
    QTest::newRow("coin EXPANSION unknown sub-command turns red") << hx("0000") << 0 << hx("010000") << hx("0F0716")
        << "EXPANSION / unknow subcommand 0x07" << "red" << hx("0F07");
    QTest::newRow("coin EXPANSION IDENTIFICATION") << hx("0007") << 0 << hx("010000") << hx("0F000F") << "EXPANSION / IDENTIFICATION" << "green" << hx("0F00");
    QTest::newRow("coin EXPANSION without sub-command decodes no reply") << hx("0005") << 0 << hx("01") << hx("0F")
        << FCC + "EXPANSION /<br>" + F + "Length error" << "green" << hx("0FFF");
    QTest::newRow("diagnostic reply") << hx("0F05") << 1 << hx("000001") << hx("030003")
        << "Changer Diagnostic Status<br>" + F + "Status Code [03 / 00]: OK - Fully operational" << "gray" << hx("0F05");
    QTest::newRow("reply to an undecoded sub-command") << hx("0F07") << 1 << hx("000001") << hx("030003") << "" << "gray" << hx("0F07");
    QTest::newRow("bill SECURITY gets the bytes between command and checksum") << hx("0000") << 0 << hx("01000000") << hx("32000537")
        << "SECURITY<br>" + F + "Bill Types with High Security:<br>" + L + "[0] [2] " << "blue" << hx("3200");
    QTest::newRow("bill SECURITY alone") << hx("0000") << 0 << hx("01") << hx("32") << FCC + "SECURITY<br>" + F + "Length error" << "blue" << hx("3200");
    QTest::newRow("bill ESCROW") << hx("0000") << 0 << hx("010000") << hx("350136")
        << "Escrow Status<br>" + F + "Action: Stack the bill" << "blue" << hx("3500");
    QTest::newRow("bill POLL reply without its checksum") << hx("3300") << 1 << hx("0001") << hx("0909")
        << "POLL Status<br>" + F + "Validator Disabled" << "gray" << hx("3300");
    QTest::newRow("bill STACKER command has no text") << hx("0000") << 0 << hx("0100") << hx("3636") << "" << "blue" << hx("3600");
    QTest::newRow("bill STACKER reply") << hx("3600") << 2 << hx("000001") << hx("800080")
        << "STACKER Status<br>" + F + "Stacker Full Flag: Yes<br>" + F + "Number of Bills in Stacker: 0" << "gray" << hx("3600");
    QTest::newRow("cashless SETUP without payload") << hx("0000") << 0 << hx("0100") << hx("1111") << F + "Length error" << "brown" << hx("1100");
    QTest::newRow("cashless VEND REQUEST 13 00 00 3C 00 01 50") << hx("0000") << 0 << hx("01000000000000") << hx("1300003C000150")
        << "Vend Request<br>" + F + "Item Price (scaled): 60<br>" + F + "Item Number: 1" << "brown" << hx("1300");
    QTest::newRow("cashless EXPANSION") << hx("0000") << 0 << hx("01000000000000") << hx("1704000000031E")
        << "Expansion Optional Feature Bit Enable<br>" + F + "Enabled Features:<br>" + L + "File Transport Layer supported<br>" + L + "32 bit monetary format"
        << "brown" << hx("1700");
    QTest::newRow("reader reply to POLL") << hx("1200") << 1 << hx("00000001") << hx("05003237")
        << "Vend Approved<br>" + F + "Vend Amount (scaled): 50" << "gray" << hx("1200");
    QTest::newRow("reader reply to VEND is not decoded") << hx("1300") << 1 << hx("00000001") << hx("05003237") << "" << "gray" << hx("1300");
    QTest::newRow("empty message changes nothing") << hx("1203") << 40 << QByteArray() << QByteArray() << "Length error" << "gray" << hx("1203");
}

void TestMdbDecoders::interpretor()
{
    QFETCH(QByteArray, before);
    QFETCH(int, gap);
    QFETCH(QByteArray, modeBits);
    QFETCH(QByteArray, data);
    QFETCH(QString, text);
    QFETCH(QString, color);
    QFETCH(QByteArray, after);

    MDB mdb(nullptr);
    mdb.lastCommand = static_cast<unsigned char>(before.at(0));
    mdb.lastSubcommand = static_cast<unsigned char>(before.at(1));
    mdb.color = "gray";
    mdb.gap = gap;
    QCOMPARE(mdb.interpretor(modeBits, data), text);
    QCOMPARE(mdb.color, color);
    QCOMPARE((QByteArray(1, char(mdb.lastCommand)) + char(mdb.lastSubcommand)).toHex(' '), after.toHex(' '));
}

// Frames through the line builder from program start; "-" marks a hidden frame.
void TestMdbDecoders::renderLine_data()
{
    QTest::addColumn<QList<QByteArray>>("frames");
    QTest::addColumn<QString>("unchecked");
    QTest::addColumn<QStringList>("lines");

    QTest::newRow("gaps: padded, in full, negative, across the wrap")
        << QList<QByteArray>{mdbFrame(7, 10, 0, "00", NoMark), mdbFrame(12355, 12356, 0, "00", NoMark),
                             mdbFrame(12351, 0xFFFFFFF0u, 0, "00", NoMark), mdbFrame(3, 4, 0, "00", NoMark)}
        << "" << QStringList{"<span style='color: red;'>0007 : M-> 00<br>" + F + "VMC ACK</span>",
                             "<span style='color: red;'>12345 : M-> 00<br>" + F + "VMC ACK</span>",
                             "<span style='color: red;'>-005 : M-> 00<br>" + F + "VMC ACK</span>",
                             "<span style='color: red;'>0019 : M-> 00<br>" + F + "VMC ACK</span>"};
    // The first 00 is no POLL's ACK; the hidden POLL moves the tick but leaves lastCommand for the reply.
    QTest::newRow("Poll off hides a POLL, not the reply after it")
        << QList<QByteArray>{mdbFrame(3, 4, 1, "00", FirstMark), mdbFrame(10, 11, 0, "3131", FirstMark),
                             mdbFrame(12, 13, 0, "3333", FirstMark), mdbFrame(14, 15, 1, "0000", LastMark)}
        << "poll" << QStringList{"<span style='color: black;'>0003 : S-> 00<br>" + F + "Peripheral ACK</span>",
                                 "<span style='color: blue;'>0006 : M-> 31 31<br>" + F + "SETUP</span>", "-",
                                 "<span style='color: blue;'>0001 : S-> 00 00<br>" + F + "Bill Validator Setup Information<br>Length error</span>"};
    QTest::newRow("Coin and Card off hide the short RESETs only")
        << QList<QByteArray>{mdbFrame(1, 2, 0, "0808", FirstMark), mdbFrame(3, 4, 0, "080808", FirstMark),
                             mdbFrame(5, 6, 0, "1010", FirstMark), mdbFrame(7, 8, 0, "6060", FirstMark),
                             mdbFrame(9, 10, 0, "3030", FirstMark)}
        << "coin,card" << QStringList{"-", "<span style='color: green;'>0001 : M-> 08 08 08<br>" + F + FCC + "RESET</span>", "-", "-",
                                      "<span style='color: blue;'>0001 : M-> 30 30<br>" + F + "RESET</span>"};
    QTest::newRow("Bill off hides 30 30; no text, short template") << QList<QByteArray>{mdbFrame(1, 2, 0, "3030", FirstMark), mdbFrame(3, 4, 0, "3636", FirstMark)}
        << "bill" << QStringList{"-", "<span style='color: blue;'>0001 : M-> 36 36</span>"};
    QTest::newRow("odd payload: last byte is data with the mode bit clear") << QList<QByteArray>{busFrame(2, 3, 0, 0, hx("0B010B"))}
        << "" << QStringList{"<span style='color: green;'>0002 : M-> 0B 0B<br>" + F + "POLL</span>"};
    QTest::newRow("empty payload; a frame too short for bus data moves no tick")
        << QList<QByteArray>{busFrame(2, 3, 0, 0, QByteArray()), hx("A55A000E02000000"), mdbFrame(5, 6, 0, "00", NoMark)}
        << "" << QStringList{"<span style='color: black;'>0002 : M-> <br>" + F + "Length error</span>", "-",
                             "<span style='color: black;'>0002 : M-> 00<br>" + F + "VMC ACK</span>"};
    QTest::newRow("any direction byte but 0 is a peripheral") << QList<QByteArray>{busFrame(2, 3, 7, 0, hx("0001"))}
        << "" << QStringList{"<span style='color: black;'>0002 : S-> 00<br>" + F + "Peripheral ACK</span>"};
    QTest::newRow("a %1 in decoded text takes the next arg, as the log format always did")
        << QList<QByteArray>{mdbFrame(1, 2, 0, "1212", FirstMark), mdbFrame(3, 4, 1, "020A253162", LastMark)} << ""
        << QStringList{"<span style='color: brown;'>0001 : M-> 12 12<br>" + F + "POLL</span>",
                       "<span style='color: " + F + ";'>0001 : %6 02 0A 25 31 62<br>S->Display Request (02H)<br>" + F
                           + "Display Time: 1000 ms (10 " + T + " 0.1s units)<br>" + F + "Display Data: brown</span>"};
}

void TestMdbDecoders::renderLine()
{
    QFETCH(QList<QByteArray>, frames);
    QFETCH(QString, unchecked);
    QFETCH(QStringList, lines);
    QCOMPARE(frames.size(), lines.size());

    MDB mdb(nullptr);
    const MDB::Filters f{!unchecked.contains("poll"), !unchecked.contains("coin"), !unchecked.contains("bill"), !unchecked.contains("card")};
    quint32 lastTickEnd = 0;
    int lastCmd = 8888;
    for (int i = 0; i < frames.size(); ++i) {
        const QString got = mdb.renderLine(frames[i], f, true, lastTickEnd, lastCmd);
        if (lines[i] == "-")
            QVERIFY2(got.isNull(), qPrintable(got));
        else
            QCOMPARE(got, lines[i]);
    }
}

QTEST_GUILESS_MAIN(TestMdbDecoders)
#include "tst_mdbdecoders.moc"
