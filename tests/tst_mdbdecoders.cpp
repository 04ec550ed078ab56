// MDB decoders and the window-free line builder: bytes in, exact HTML out.
#include "testsupport.h"

#include "mdb/bill.h"
#include "mdb/card.h"
#include "mdb/coin.h"
#include "mdb/mdb.h"

#include <cstring>
#include <functional>
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

using Decoder = std::function<QString(const unsigned char *, int)>;

// The decoder gets a heap copy of exactly the message, so the sanitizer
// catches any read past it.
QString run(const Decoder &decoder, const QByteArray &bytes)
{
    std::unique_ptr<unsigned char[]> copy(new unsigned char[size_t(bytes.size()) + 1]);
    memcpy(copy.get(), bytes.constData(), size_t(bytes.size()));
    return decoder(copy.get(), int(bytes.size()));
}

QString decode(const QString &name, const QByteArray &bytes)
{
    static const QMap<QString, Decoder> decoders = {
        {"coinType", Coin::coinType}, {"coinExpansion", Coin::expansion}, {"coinSetup", Coin::setupReply},
        {"tubeStatus", Coin::tubeStatus}, {"identification", Coin::identification},
        {"diagnostic", [](const unsigned char *p, int n) { return Coin::changerDiagnosticStatus(p, n); }},
        {"billSetup", Bill::setup}, {"billPoll", Bill::poll}, {"stacker", Bill::stacker},
        {"security", Bill::security}, {"billType", Bill::billType}, {"escrow", Bill::escrow},
        {"cardSetup", Card::setup}, {"vend", Card::vend}, {"cardExpansion", Card::expansion},
        {"cardPoll", Card::poll},
    };
    return run(decoders.value(name), bytes);
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

class TestMdbDecoders : public QObject
{
    Q_OBJECT
private slots:
    void decoders_data();
    void decoders();
    void diagnosticWithQByteArray();
    void interpretor_data();
    void interpretor();
    void interpretSwitchOffKeepsState();
    void renderLine_data();
    void renderLine();
    void hiddenFrameMovesTicksAndLastCmd();
    void commandSets();
};

void TestMdbDecoders::decoders_data()
{
    QTest::addColumn<QString>("decoder");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("expected");

    // Coin changer.
    QTest::newRow("coin type rows run from coin 15 down to 0") << "coinType" << hx("0C0005000011")
        << "COIN TYPE<br>" + F + "Coin Enable Status:<br>" + L + Z8 + "<br>" + L + "[0] [0] [0] [0] [0] [1] [0] [1] <br>"
            + F + "Manual Dispense Enable Status:<br>" + L + Z8 + "<br>" + L + Z8;
    QTest::newRow("coin type without manual mask shows what is there") << "coinType" << hx("0C800111")
        << "COIN TYPE<br>" + F + "Coin Enable Status:<br>" + L + "[1] [0] [0] [0] [0] [0] [0] [0] <br>" + L
            + "[0] [0] [0] [0] [0] [0] [0] [1] <br>" + F + "Length error";
    QTest::newRow("coin type without fields") << "coinType" << hx("0C") << "COIN TYPE<br>" + F + "Length error";
    QTest::newRow("expansion unknown sub-command in lower-case hex") << "coinExpansion" << hx("0FFA09")
        << "EXPANSION / unknow subcommand 0xfa";
    QTest::newRow("expansion without sub-command") << "coinExpansion" << hx("0F") << "EXPANSION /<br>" + F + "Length error";
    QTest::newRow("feature enable lists FTL only") << "coinExpansion" << hx("0F010000000818")
        << "EXPANSION / FEATURE ENABLE<br>" + F + "Optional Features Enable:<br>" + L + "File Transport Layer (FTL) supported";
    QTest::newRow("feature enable ignores the high bits") << "coinExpansion" << hx("0F01000000F000")
        << "EXPANSION / FEATURE ENABLE<br>" + F + "Optional Features Enable:<br>" + L + "No features enabled.";
    QTest::newRow("feature enable lists set bits in order") << "coinExpansion" << hx("0F010000000515")
        << "EXPANSION / FEATURE ENABLE<br>" + F + "Optional Features Enable:<br>" + L + "Alternative Payout method<br>"
            + L + "Controlled Manual Fill and Payout commands supported";
    QTest::newRow("feature enable with a short mask") << "coinExpansion" << hx("0F010000")
        << "EXPANSION / FEATURE ENABLE<br>" + F + "Length error";
    QTest::newRow("setup reply: ISO code, hex scaling, routing from coin 0")
        << "coinSetup" << hx("0318400A0203000102050A143264C800000000000000009F")
        << "Changer setup information<br>" + F + "Changer Feature Level [3]<br>" + F
            + "Country/Currency Code ISO 4217 [840]<br>" + F + "Coin Scaling Factor [0a]<br>" + F + "Decimal Places [2]<br>"
            + F + "Coin Type Routing:<br>" + L + Z8 + "<br>" + L + "[1] [1] [0] [0] [0] [0] [0] [0] "
            + "<br>" + F + "Coin Type Credits:<br>" + L + "[1] [2] [5] [10] [20] [50] [100] [200] <br>" + L + Z8;
    QTest::newRow("setup reply with a telephone code") << "coinSetup" << hx("020001010000000000000000000000000000000000000004")
        << "Changer setup information<br>" + F + "Changer Feature Level [2]<br>" + F
            + "Country/Currency Code International Telephone Code [001]<br>" + F + "Coin Scaling Factor [01]<br>" + F
            + "Decimal Places [0]<br>" + F + "Coin Type Routing:<br>" + L + Z8 + "<br>" + L + Z8 + "<br>" + F
            + "Coin Type Credits:<br>" + L + Z8 + "<br>" + L + Z8;
    QTest::newRow("setup reply one byte short adds nothing") << "coinSetup" << QByteArray(23, 1) << "";
    QTest::newRow("setup reply one byte long adds nothing") << "coinSetup" << QByteArray(25, 1) << "";
    QTest::newRow("tube counts are right-aligned to the widest") << "tubeStatus"
        << hx("8003C801000000000000000000000000000AFF")
        << "Changer tube status<br>" + F + "Tube Full Status:<br>" + L + "[1] [0] [0] [0] [0] [0] [0] [0] <br>" + L
            + "[0] [0] [0] [0] [0] [0] [1] [1] <br>" + F + "Coin Counts for each tube:<br>" + L
            + "[200] [  1] [  0] [  0] [  0] [  0] [  0] [  0] <br>" + L + "[  0] [  0] [  0] [  0] [  0] [  0] [  0] [ 10] ";
    QTest::newRow("tube counts two wide") << "tubeStatus" << hx("0000050C000000000000000000000000001100")
        << "Changer tube status<br>" + F + "Tube Full Status:<br>" + L + Z8 + "<br>" + L + Z8 + "<br>" + F
            + "Coin Counts for each tube:<br>" + L + "[ 5] [12] [ 0] [ 0] [ 0] [ 0] [ 0] [ 0] <br>" + L
            + "[ 0] [ 0] [ 0] [ 0] [ 0] [ 0] [ 0] [17] ";
    QTest::newRow("tube status without counts") << "tubeStatus" << hx("000305")
        << "Changer tube status<br>" + F + "Tube Full Status:<br>" + L + Z8 + "<br>" + L
            + "[0] [0] [0] [0] [0] [0] [1] [1] <br>" + F + "Length error";
    QTest::newRow("tube status of one byte") << "tubeStatus" << hx("00") << "Changer tube status<br>" + F + "Length error";
    QTest::newRow("identification: text fields, BCD version, features")
        << "identification" << QByteArray("ABCSN0000000042MODEL-X 0001") + hx("98120000000300")
        << "VMC Command Code Sub-Command Changer Response Data (EXPANSION)<br>" + F + "Manufacturer Code [ABC]<br>" + F
            + "Serial Number [SN0000000042]<br>" + F + "Model #/Tuning Revision [MODEL-X 0001]<br>" + F
            + "Software Version [9812]<br>" + F + "Optional Features:<br>" + L + "Alternative Payout method<br>" + L
            + "Extended Diagnostic command supported";
    QTest::newRow("identification without features, UTF-8 serial")
        << "identification" << QByteArray("ABCS\xC3\xA9rie-00001MODEL-X 0001") + hx("01020000000000")
        << "VMC Command Code Sub-Command Changer Response Data (EXPANSION)<br>" + F + "Manufacturer Code [ABC]<br>" + F
            + QString::fromUtf8("Serial Number [S\u00E9rie-00001]<br>") + F + "Model #/Tuning Revision [MODEL-X 0001]<br>"
            + F + "Software Version [0102]<br>" + F + "Optional Features:<br>" + L + "No optional features supported.";
    QTest::newRow("identification one byte short adds nothing") << "identification" << QByteArray(33, 'A') << "";
    QTest::newRow("diagnostic: one pair, its <br> removed") << "diagnostic" << hx("030003")
        << "Changer Diagnostic Status<br>" + F + "Status Code [03 / 00]: OK - Fully operational";
    QTest::newRow("diagnostic: first of two pairs keeps its <br>") << "diagnostic" << hx("0300111024")
        << "Changer Diagnostic Status<br>" + F + "Status Code [03 / 00]: OK - Fully operational<br>" + F
            + "Status Code [11 / 10]: Flight deck open";
    QTest::newRow("diagnostic: sub-codes that only some main codes know") << "diagnostic"
        << hx("0500051005200599107710031154124015041300140014011503FF")
        << "Changer Diagnostic Status<br>" + F + "Status Code [05 / 00]: Unknown Sub-code<br>" + F
            + "Status Code [05 / 10]: Manual Fill / Payout active<br>" + F
            + "Status Code [05 / 20]: New Inventory Information Available<br>" + F
            + "Status Code [05 / 99]: Unknown Sub-code<br>" + F + "Status Code [10 / 77]: Unknown General Error<br>" + F
            + "Status Code [10 / 03]: Low line voltage detected<br>" + F + "Status Code [11 / 54]: Sizing optics failure<br>"
            + F + "Status Code [12 / 40]: Accept gate open, but no coin detected<br>" + F
            + "Status Code [15 / 04]: Sunlight on tube sensors<br>" + F + "Status Code [13 / 00]: Non-specific separator error<br>"
            + F + "Status Code [14 / 00]: Non-specific dispenser error<br>" + F + "Status Code [14 / 01]: Unknown Dispenser Error<br>"
            + F + "Status Code [15 / 03]: Cash box sensor error";
    QTest::newRow("diagnostic: main codes outside the table, odd byte ignored") << "diagnostic"
        << hx("0000070F0F10160011AA12AB13CCFFFF06010401020001FF7777")
        << "Changer Diagnostic Status<br>" + F + "Status Code [00 / 00]: Unknown Main Status Code<br>" + F
            + "Status Code [07 / 0f]: Unknown Main Status Code<br>" + F + "Status Code [0f / 10]: Unknown Main Status Code<br>"
            + F + "Status Code [16 / 00]: Unknown Main Status Code<br>" + F + "Status Code [11 / aa]: Unknown Discriminator Error<br>"
            + F + "Status Code [12 / ab]: Unknown Accept Gate Error<br>" + F + "Status Code [13 / cc]: Unknown Separator Error<br>"
            + F + "Status Code [ff / ff]: Unknown Main Status Code<br>" + F + "Status Code [06 / 01]: Inhibited by VMC<br>" + F
            + "Status Code [04 / 01]: Keypad shifted (MODE key held)<br>" + F + "Status Code [02 / 00]: Powering down<br>" + F
            + "Status Code [01 / ff]: Powering up";
    QTest::newRow("diagnostic of two bytes is the heading alone") << "diagnostic" << hx("0303") << "Changer Diagnostic Status";

    // Bill validator.
    const QString billSetupTail = F + "Bill Scaling Factor [5]<br>" + F + "Decimal Places [2]<br>" + F
        + "Stacker Capacity [500]<br>" + F + "Bill Security Levels [258]<br>" + F + "Escrow Capability [Yes]<br>" + F
        + "Bill Type Credits:<br>" + L + "[01] [02] [05] [10] [20] [50] [100] [200] <br>" + L
        + "[00] [00] [00] [00] [00] [00] [00] [00] ";
    QTest::newRow("bill setup with ISO code and two-digit credits") << "billSetup"
        << hx("01184000050201F40102FF0102050A143264C80000000000000000")
        << "Bill Validator Setup Information<br>" + F + "Bill Validator Feature Level [1]<br>" + F
            + "Country/Currency Code ISO 4217 [840]<br>" + billSetupTail;
    QTest::newRow("bill setup 0F is a telephone code, nibble 15 in full") << "billSetup"
        << hx("020F2300050201F40102FF0102050A143264C80000000000000000")
        << "Bill Validator Setup Information<br>" + F + "Bill Validator Feature Level [2]<br>" + F
            + "Country/Currency Code International Telephone Code [1523]<br>" + billSetupTail;
    QTest::newRow("bill setup 10 is an ISO code, escrow 01 is No") << "billSetup"
        << hx("02100000050201F4010201000000000000000000000000000000FF")
        << "Bill Validator Setup Information<br>" + F + "Bill Validator Feature Level [2]<br>" + F
            + "Country/Currency Code ISO 4217 [000]<br>" + F + "Bill Scaling Factor [5]<br>" + F + "Decimal Places [2]<br>"
            + F + "Stacker Capacity [500]<br>" + F + "Bill Security Levels [258]<br>" + F + "Escrow Capability [No]<br>" + F
            + "Bill Type Credits:<br>" + L + "[00] [00] [00] [00] [00] [00] [00] [00] <br>" + L
            + "[00] [00] [00] [00] [00] [00] [00] [255] ";
    QTest::newRow("bill setup of 26 bytes") << "billSetup" << QByteArray(26, 1) << "Bill Validator Setup Information<br>Length error";
    QTest::newRow("bill setup of 28 bytes") << "billSetup" << QByteArray(28, 1) << "Bill Validator Setup Information<br>Length error";
    QTest::newRow("bill poll without bytes is no activity") << "billPoll" << QByteArray() << "POLL Status<br>" + F + "ACK (No activity)";
    QTest::newRow("bill poll routing then status") << "billPoll" << hx("9009")
        << "POLL Status<br>" + F + "Bill Routing: ESCROW POSITION, Bill Type: 0<br>" + F + "Validator Disabled";
    QTest::newRow("bill poll every routing") << "billPoll" << hx("80911AA2B3C4D5E6")
        << "POLL Status<br>" + F + "Bill Routing: BILL STACKED, Bill Type: 0<br>" + F
            + "Bill Routing: ESCROW POSITION, Bill Type: 1<br>" + F + "Unknown Status<br>" + F
            + "Bill Routing: BILL RETURNED, Bill Type: 2<br>" + F + "Bill Routing: BILL TO RECYCLER, Bill Type: 3<br>" + F
            + "Bill Routing: DISABLED BILL REJECTED, Bill Type: 4<br>" + F
            + "Bill Routing: BILL TO RECYCLER (MANUAL FILL), Bill Type: 5<br>" + F + "Bill Routing: MANUAL DISPENSE, Bill Type: 6";
    QTest::newRow("bill poll transfer to cashbox, attempts, unknowns") << "billPoll" << hx("FF405F000D3F607F")
        << "POLL Status<br>" + F + "Bill Routing: TRANSFERRED FROM RECYCLER TO CASHBOX, Bill Type: 15<br>" + F
            + "Attempts While Disabled: 0<br>" + F + "Attempts While Disabled: 31<br>" + F + "Unknown Status<br>" + F
            + "Unknown Status<br>" + F + "Unknown Status<br>" + F + "Unknown Status<br>" + F + "Unknown Status";
    QTest::newRow("bill poll every status") << "billPoll" << hx("0102030405060708090A0B0C")
        << "POLL Status<br>" + F + "Defective Motor<br>" + F + "Sensor Problem<br>" + F + "Validator Busy<br>" + F
            + "ROM Checksum Error<br>" + F + "Validator Jammed<br>" + F + "Validator Reset<br>" + F + "Bill Removed<br>" + F
            + "Cashbox Out of Position<br>" + F + "Validator Disabled<br>" + F + "Invalid Escrow Request<br>" + F
            + "Bill Rejected<br>" + F + "Possible Credited Bill Removal";
    QTest::newRow("bill poll of 17 bytes") << "billPoll" << QByteArray(17, 9) << "POLL Status<br>" + F + "Length error";
    QTest::newRow("stacker full, no bills") << "stacker" << hx("8000")
        << "STACKER Status<br>" + F + "Stacker Full Flag: Yes<br>" + F + "Number of Bills in Stacker: 0";
    QTest::newRow("stacker count uses fifteen bits") << "stacker" << hx("7FFF")
        << "STACKER Status<br>" + F + "Stacker Full Flag: No<br>" + F + "Number of Bills in Stacker: 32767";
    QTest::newRow("stacker of three bytes") << "stacker" << hx("800000") << "STACKER Status<br>" + F + "Length error";
    QTest::newRow("security lists set bits from 0") << "security" << hx("8005")
        << "SECURITY<br>" + F + "Bill Types with High Security:<br>" + L + "[0] [2] [15] ";
    QTest::newRow("security without bits ends with the list indent") << "security" << hx("0000")
        << "SECURITY<br>" + F + "Bill Types with High Security:<br>" + L;
    QTest::newRow("security of one byte") << "security" << hx("00") << "SECURITY<br>" + F + "Length error";
    QTest::newRow("bill type all disabled") << "billType" << hx("00000000")
        << "BILL TYPE<br>" + F + "Action: Bill Validator Disabled<br>" + F + "Action: Escrow are disabled";
    QTest::newRow("bill type all enabled, escrow for 0") << "billType" << hx("FFFF0001")
        << "BILL TYPE<br>" + F + "Enabled Bill Types:<br>" + L
            + "[0] [1] [2] [3] [4] [5] [6] [7] [8] [9] [10] [11] [12] [13] [14] [15] <br>" + F
            + "Escrow Enabled Bill Types:<br>" + L + "[0] ";
    QTest::newRow("bill type enabled without escrow") << "billType" << hx("00030000")
        << "BILL TYPE<br>" + F + "Enabled Bill Types:<br>" + L + "[0] [1] <br>" + F + "Action: Escrow are disabled";
    QTest::newRow("bill type of two bytes") << "billType" << hx("FFFF") << "BILL TYPE<br>" + F + "Length error";
    QTest::newRow("escrow 00 returns") << "escrow" << hx("00") << "Escrow Status<br>" + F + "Action: Return bill in escrow position";
    QTest::newRow("escrow odd stacks") << "escrow" << hx("03") << "Escrow Status<br>" + F + "Action: Stack the bill";
    QTest::newRow("escrow other even is reserved") << "escrow" << hx("02") << "Escrow Status<br>" + F + "Action: Invalid / Reserved value";
    QTest::newRow("escrow without byte") << "escrow" << QByteArray() << "Escrow Status<br>" + F + "Length error";

    // Cashless device, VMC commands.
    QTest::newRow("setup config data") << "cardSetup" << hx("0002100209")
        << "Setup Config Data<br>" + F + "VMC Feature Level : 2 VMC capable and willing to perform advanced features<br>" + F
            + "Columns on Display : 16<br>" + F + "Rows on Display : 2<br>" + F + "Display Information : 0x09<br>" + F
            + "Display Type: 0x01<br>" + F + "Display Format: Full ASCII";
    QTest::newRow("setup config data, level 1, numeric display") << "cardSetup" << hx("00010801F8")
        << "Setup Config Data<br>" + F + "VMC Feature Level : 1 VMC not capable / advanced features not supported<br>" + F
            + "Columns on Display : 8<br>" + F + "Rows on Display : 1<br>" + F + "Display Information : 0xf8<br>" + F
            + "Display Type: 0x1f<br>" + F + "Display Format: Numbers, uppercase letters, blank, decimal point";
    QTest::newRow("setup config data, unknown level, unused format") << "cardSetup" << hx("0007000007")
        << "Setup Config Data<br>" + F + "VMC Feature Level : Unknown Feature Level<br>" + F + "Columns on Display : 0<br>" + F
            + "Rows on Display : 0<br>" + F + "Display Information : 0x07<br>" + F + "Display Type: 0x00<br>" + F
            + "Display Format: Unused / Unassigned";
    QTest::newRow("setup config data too short") << "cardSetup" << hx("00021002") << "Setup Config Data<br>" + F + "Length error";
    QTest::newRow("setup prices unknown") << "cardSetup" << hx("01FFFF0000")
        << "Setup Max/Min Prices<br>" + F + "Maximum Price: Unknown<br>" + F + "Minimum Price: Unknown";
    QTest::newRow("setup prices scaled") << "cardSetup" << hx("0100C8000A")
        << "Setup Max/Min Prices<br>" + F + "Maximum Price (scaled): 200<br>" + F + "Minimum Price (scaled): 10";
    QTest::newRow("setup unknown subcommand") << "cardSetup" << hx("02") << F + "Unknown Subcommand: 0x02";
    QTest::newRow("setup without payload") << "cardSetup" << QByteArray() << F + "Length error";
    QTest::newRow("vend request, undefined item") << "vend" << hx("000064FFFF")
        << "Vend Request<br>" + F + "Item Price (scaled): 100<br>" + F + "Item Number: Undefined / Not Implemented";
    QTest::newRow("vend request too short") << "vend" << hx("000100") << "Vend Request<br>" + F + "Length error";
    QTest::newRow("vend cancel") << "vend" << hx("01") << "VEND CANCEL";
    QTest::newRow("vend success item in hex") << "vend" << hx("02ABCD") << "Vend Success<br>" + F + "Item Number: 43981 (0xabcd)";
    QTest::newRow("vend success undefined item") << "vend" << hx("02FFFF") << "Vend Success<br>" + F + "Item Number: Undefined (FFFFh)";
    QTest::newRow("vend failure has no decoder") << "vend" << hx("03") << F + "Unknown Subcommand: 0x03";
    QTest::newRow("vend session complete") << "vend" << hx("04") << "SESSION COMPLETE";
    QTest::newRow("optional features FTL and 32 bit") << "cardExpansion" << hx("0400000003")
        << "Expansion Optional Feature Bit Enable<br>" + F + "Enabled Features:<br>" + L + "File Transport Layer supported<br>"
            + L + "32 bit monetary format";
    QTest::newRow("optional features: bit 1 always named, bits 10 up ignored") << "cardExpansion" << hx("04FFFFFC00")
        << "Expansion Optional Feature Bit Enable<br>" + F + "Enabled Features:<br>" + L + "16 bit monetary format";
    QTest::newRow("optional features bits 2 to 9") << "cardExpansion" << hx("04000003FC")
        << "Expansion Optional Feature Bit Enable<br>" + F + "Enabled Features:<br>" + L + "16 bit monetary format<br>" + L
            + "Enable multi currency / multi lingual<br>" + L + "Enable negative vend<br>" + L + "Enable data entry<br>" + L
            + "Enable 'Always Idle' state<br>" + L + "Allow 'Remote Vend' feature<br>" + L
            + "Allow 'Basket / Partial Refund / Options Price' feature<br>" + L + "Allow 'Coupon' feature<br>" + L
            + "Allow 'Ask Begin Session' feature";
    QTest::newRow("request ID, Latin-1 text, BCD digits above 9") << "cardExpansion"
        << hx("00") + QByteArray("\xC4<ZSN0000000042MODEL-X 0001") + hx("AF99")
        << "Expansion Request ID<br>" + F + QString::fromUtf8("Manufacturer Code: \u00C4<Z<br>") + F
            + "Serial Number: SN0000000042<br>" + F + "Model Number: MODEL-X 0001<br>" + F + "Software Version: 10.15.9.9";
    QTest::newRow("request ID of 29 bytes") << "cardExpansion" << hx("00") + QByteArray(28, 'A')
        << "Expansion Request ID<br>" + F + "Length error";

    // Cashless device, reader replies to POLL.
    QTest::newRow("just reset, later messages ignored") << "cardPoll" << hx("00010218400102050B") << "Just Reset";
    QTest::newRow("vend denied") << "cardPoll" << hx("06") << "VEND DENIED";
    QTest::newRow("end session") << "cardPoll" << hx("07") << "END SESSION";
    QTest::newRow("session cancel has no decoder") << "cardPoll" << hx("04") << F + "Unknown Subcommand: 0x04";
    QTest::newRow("code 0b has no decoder") << "cardPoll" << hx("0B") << F + "Unknown Subcommand: 0x0b";
    QTest::newRow("reader config data") << "cardPoll" << hx("010218400102050B")
        << "Reader Config Data<br>" + F + "Reader Feature Level [2] - Supports advanced features<br>" + F
            + "ISO 4217 Currency Code [1840]<br>" + F + "Scale Factor [1]<br>" + F + "Decimal Places [2]<br>" + F
            + "Application Maximum Response Time [5 s]<br>" + F + "Miscellaneous Options:<br>" + L + "Restore funds: Yes<br>"
            + L + "Multivend capable: Yes<br>" + L + "Has display: No<br>" + L + "Supports VEND/CASH SALE: Yes";
    QTest::newRow("reader config data, telephone code, options off") << "cardPoll" << hx("01070FFF0A0300F0")
        << "Reader Config Data<br>" + F + "Reader Feature Level [7] - Unknown feature level<br>" + F
            + "International Telephone Code [0fff]<br>" + F + "Scale Factor [10]<br>" + F + "Decimal Places [3]<br>" + F
            + "Application Maximum Response Time [0 s]<br>" + F + "Miscellaneous Options:<br>" + L + "Restore funds: No<br>"
            + L + "Multivend capable: No<br>" + L + "Has display: No<br>" + L + "Supports VEND/CASH SALE: No";
    QTest::newRow("reader config data of 7 bytes") << "cardPoll" << hx("01021840010205") << "Reader Config Data<br>" + F + "Length error";
    QTest::newRow("display request keeps 32 text bytes") << "cardPoll"
        << hx("021E") + QByteArray("0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ!?<>")
        << "Display Request (02H)<br>" + F + "Display Time: 3000 ms (30 " + T + " 0.1s units)<br>" + F
            + "Display Data: 0123456789ABCDEFGHIJKLMNOPQRSTUV";
    QTest::newRow("display request without text") << "cardPoll" << hx("021E") << "Display Request (02H)<br>" + F + "Length error";
    QTest::newRow("begin session, nothing known yet") << "cardPoll" << hx("03FFFFFFFFFFFF010000")
        << "Begin Session<br>" + F + "Funds Available: Not yet determined<br>" + F + "Payment Media ID: Unknown<br>" + F
            + "Payment Type: 0x01<br>" + F + "Payment Data: Z9=0, Z10=0";
    QTest::newRow("begin session, max funds") << "cardPoll" << hx("03FFFE0000002A000000")
        << "Begin Session<br>" + F + "Funds Available: Max (FFFEh)<br>" + F + "Payment Media ID: 0x0000002a<br>" + F
            + "Payment Type: 0x00<br>" + F + "Payment Data: Z9=0, Z10=0";
    QTest::newRow("begin session, scaled funds") << "cardPoll" << hx("030064DEADBEEF0AFF07")
        << "Begin Session<br>" + F + "Funds Available (scaled): 100<br>" + F + "Payment Media ID: 0xdeadbeef<br>" + F
            + "Payment Type: 0x0a<br>" + F + "Payment Data: Z9=255, Z10=7";
    QTest::newRow("begin session of level 1 is too short") << "cardPoll" << hx("030064") << "Begin Session<br>" + F + "Length error";
    QTest::newRow("vend approved") << "cardPoll" << hx("050032") << "Vend Approved<br>" + F + "Vend Amount (scaled): 50";
    QTest::newRow("vend approved with a token") << "cardPoll" << hx("05FFFF") << "Vend Approved<br>" + F + "Vend Amount: Electronic token used";
    QTest::newRow("peripheral ID") << "cardPoll" << hx("09") + QByteArray("ABCSN0000000042MODEL-X 0001") + hx("1234")
        << "Peripheral ID<br>" + F + "Manufacturer Code: ABC<br>" + F + "Serial Number: SN0000000042<br>" + F
            + "Model Number: MODEL-X 0001<br>" + F + "Software Version: 1.2.3.4";
    QTest::newRow("peripheral ID of 29 bytes") << "cardPoll" << hx("09") + QByteArray(28, 'A') << "Peripheral ID<br>" + F + "Length error";
}

void TestMdbDecoders::decoders()
{
    QFETCH(QString, decoder);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, expected);
    QCOMPARE(decode(decoder, bytes), expected);
}

void TestMdbDecoders::diagnosticWithQByteArray()
{
    QCOMPARE(Coin::changerDiagnosticStatus(hx("0510")), QString("Changer Diagnostic Status"));
    QCOMPARE(Coin::changerDiagnosticStatus(hx("150219")),
             "Changer Diagnostic Status<br>" + F + "Status Code [15 / 02]: Cassette removed");
}

// One message against a preset interpreter state: text, colour and state after it.
void TestMdbDecoders::interpretor_data()
{
    QTest::addColumn<int>("presetCommand");
    QTest::addColumn<int>("presetSubcommand");
    QTest::addColumn<QString>("presetColor");
    QTest::addColumn<int>("gap");
    QTest::addColumn<QByteArray>("modeBits");
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("color");
    QTest::addColumn<int>("lastCommand");
    QTest::addColumn<int>("lastSubcommand");

    QTest::newRow("coin POLL is green whatever its gap") << 0 << 0 << "black" << 100 << hx("0100") << hx("0B0B") << "POLL" << "green" << 0x0B << 0;
    QTest::newRow("wrong checksum marked before the name") << 0 << 0 << "black" << 0 << hx("0100") << hx("0B0C") << FCC + "POLL" << "green" << 0x0B << 0;
    QTest::newRow("lone command byte has no checksum") << 0 << 0 << "black" << 0 << hx("01") << hx("0B") << FCC + "POLL" << "green" << 0x0B << 0;
    QTest::newRow("mode byte 2 does not count as set") << 0x31 << 0 << "blue" << 0 << hx("0200") << hx("0B0B") << "unknow data 0x0b" << "red" << 0x31 << 0;
    QTest::newRow("unknown command clears lastCommand") << 0x0B << 0 << "green" << 0 << hx("0100") << hx("0E0E") << "unknow command 0x0e" << "red" << 0 << 0;
    QTest::newRow("0x66 is no cashless 2 command") << 0x0B << 0 << "green" << 0 << hx("010000") << hx("66FF65") << "unknow command 0x66" << "red" << 0 << 0;
    QTest::newRow("peripheral ACK in time keeps the colour") << 0x0B << 0 << "green" << 5 << hx("01") << hx("00") << "Peripheral ACK" << "green" << 0x0B << 0;
    QTest::newRow("peripheral ACK 6 ticks late turns red") << 0x0B << 0 << "green" << 6 << hx("01") << hx("00") << "Peripheral ACK" << "red" << 0x0B << 0;
    QTest::newRow("other marked single byte is ignored") << 0x0B << 3 << "green" << 99 << hx("01") << hx("05") << "" << "green" << 0x0B << 3;
    QTest::newRow("VMC ACK") << 0x31 << 0 << "blue" << 1 << hx("00") << hx("00") << "VMC ACK" << "blue" << 0x31 << 0;
    QTest::newRow("VMC RET") << 0x31 << 0 << "blue" << 1 << hx("00") << hx("AA") << "VMC RET" << "blue" << 0x31 << 0;
    QTest::newRow("late VMC NAK turns red") << 0x31 << 0 << "blue" << 7 << hx("00") << hx("FF") << "VMC NAK" << "red" << 0x31 << 0;
    QTest::newRow("unmarked two bytes are unknown data") << 0x31 << 0 << "blue" << 0 << hx("0000") << hx("0000") << "unknow data 0x00" << "red" << 0x31 << 0;
    QTest::newRow("changer JUST RESET") << 0x0B << 0 << "green" << 2 << hx("0001") << hx("0B0B") << "JUST RESET" << "green" << 0x0B << 0;
    QTest::newRow("other POLL replies add nothing") << 0x0B << 0 << "green" << 2 << hx("000001") << hx("010203") << "" << "green" << 0x0B << 0;
    QTest::newRow("late reply turns red") << 0x0B << 0 << "green" << 6 << hx("0001") << hx("0B0B") << "JUST RESET" << "red" << 0x0B << 0;
    QTest::newRow("reply with bad checksum still decoded") << 0x0B << 0 << "green" << 0 << hx("0001") << hx("0B0C") << FCC + "JUST RESET" << "green" << 0x0B << 0;
    QTest::newRow("reply before any command: checksum only") << 0 << 0 << "black" << 0 << hx("00000001") << hx("01020307") << FCC << "black" << 0 << 0;
    QTest::newRow("coin SETUP reply of another length: checksum only") << 0x09 << 0 << "green" << 0 << hx("000001") << hx("010203") << "" << "green" << 0x09 << 0;
    QTest::newRow("cashless 2 command: no text, magenta") << 0 << 0 << "black" << 0 << hx("0100") << hx("6262") << "" << "magenta" << 0x62 << 0;
    QTest::newRow("cashless 2 RESET named") << 0 << 0 << "black" << 0 << hx("0100") << hx("6060") << "RESET" << "magenta" << 0x60 << 0;
    QTest::newRow("coin DISPENSE named") << 0 << 0 << "black" << 0 << hx("010000") << hx("0D121F") << "DISPENSE" << "green" << 0x0D << 0;
    QTest::newRow("coin EXPANSION unknown sub-command turns red") << 0 << 0 << "black" << 0 << hx("010000") << hx("0F0716")
        << "EXPANSION / unknow subcommand 0x07" << "red" << 0x0F << 7;
    QTest::newRow("coin EXPANSION IDENTIFICATION") << 0 << 7 << "black" << 0 << hx("010000") << hx("0F000F")
        << "EXPANSION / IDENTIFICATION" << "green" << 0x0F << 0;
    QTest::newRow("coin EXPANSION without sub-command decodes no reply") << 0 << 5 << "black" << 0 << hx("01") << hx("0F")
        << FCC + "EXPANSION /<br>" + F + "Length error" << "green" << 0x0F << 0xFF;
    QTest::newRow("diagnostic reply") << 0x0F << 5 << "green" << 1 << hx("000001") << hx("030003")
        << "Changer Diagnostic Status<br>" + F + "Status Code [03 / 00]: OK - Fully operational" << "green" << 0x0F << 5;
    QTest::newRow("reply to an undecoded sub-command") << 0x0F << 7 << "red" << 1 << hx("000001") << hx("030003") << "" << "red" << 0x0F << 7;
    QTest::newRow("bill SECURITY gets the bytes between command and checksum") << 0 << 0 << "black" << 0 << hx("01000000")
        << hx("32000537") << "SECURITY<br>" + F + "Bill Types with High Security:<br>" + L + "[0] [2] " << "blue" << 0x32 << 0;
    QTest::newRow("bill SECURITY alone") << 0 << 0 << "black" << 0 << hx("01") << hx("32")
        << FCC + "SECURITY<br>" + F + "Length error" << "blue" << 0x32 << 0;
    QTest::newRow("bill ESCROW") << 0 << 0 << "black" << 0 << hx("010000") << hx("350136")
        << "Escrow Status<br>" + F + "Action: Stack the bill" << "blue" << 0x35 << 0;
    QTest::newRow("bill STACKER command has no text") << 0 << 0 << "black" << 0 << hx("0100") << hx("3636") << "" << "blue" << 0x36 << 0;
    QTest::newRow("bill STACKER reply") << 0x36 << 0 << "blue" << 2 << hx("000001") << hx("800080")
        << "STACKER Status<br>" + F + "Stacker Full Flag: Yes<br>" + F + "Number of Bills in Stacker: 0" << "blue" << 0x36 << 0;
    QTest::newRow("cashless SETUP without payload") << 0 << 0 << "black" << 0 << hx("0100") << hx("1111")
        << F + "Length error" << "brown" << 0x11 << 0;
    QTest::newRow("cashless VEND REQUEST 13 00 00 3C 00 01 50") << 0 << 0 << "black" << 0 << hx("01000000000000")
        << hx("1300003C000150") << "Vend Request<br>" + F + "Item Price (scaled): 60<br>" + F + "Item Number: 1" << "brown" << 0x13 << 0;
    QTest::newRow("cashless EXPANSION") << 0 << 0 << "black" << 0 << hx("01000000000000") << hx("1704000000031E")
        << "Expansion Optional Feature Bit Enable<br>" + F + "Enabled Features:<br>" + L + "File Transport Layer supported<br>"
            + L + "32 bit monetary format" << "brown" << 0x17 << 0;
    QTest::newRow("reader reply to POLL") << 0x12 << 0 << "brown" << 1 << hx("00000001") << hx("05003237")
        << "Vend Approved<br>" + F + "Vend Amount (scaled): 50" << "brown" << 0x12 << 0;
    QTest::newRow("reader reply to VEND is not decoded") << 0x13 << 0 << "brown" << 1 << hx("00000001") << hx("05003237")
        << "" << "brown" << 0x13 << 0;
    QTest::newRow("empty message changes nothing") << 0x12 << 3 << "brown" << 40 << QByteArray() << QByteArray()
        << "Length error" << "brown" << 0x12 << 3;
}

void TestMdbDecoders::interpretor()
{
    QFETCH(int, presetCommand);
    QFETCH(int, presetSubcommand);
    QFETCH(QString, presetColor);
    QFETCH(int, gap);
    QFETCH(QByteArray, modeBits);
    QFETCH(QByteArray, data);
    QFETCH(QString, text);
    QFETCH(QString, color);
    QFETCH(int, lastCommand);
    QFETCH(int, lastSubcommand);

    MDB mdb(nullptr);
    mdb.lastCommand = static_cast<unsigned char>(presetCommand);
    mdb.lastSubcommand = static_cast<unsigned char>(presetSubcommand);
    mdb.color = presetColor;
    mdb.gap = gap;
    QCOMPARE(mdb.interpretor(modeBits, data), text);
    QCOMPARE(mdb.color, color);
    QCOMPARE(int(mdb.lastCommand), lastCommand);
    QCOMPARE(int(mdb.lastSubcommand), lastSubcommand);
}

void TestMdbDecoders::interpretSwitchOffKeepsState()
{
    MDB mdb(nullptr);
    QCOMPARE(mdb.explain(hx("010000"), hx("0F0716"), false), QString());
    QCOMPARE(mdb.color, QString("red"));
    QCOMPARE(int(mdb.lastCommand), 0x0F);
    QCOMPARE(int(mdb.lastSubcommand), 7);
}

// Frames through the line builder from program start; "-" marks a hidden frame.
void TestMdbDecoders::renderLine_data()
{
    QTest::addColumn<QList<QByteArray>>("frames");
    QTest::addColumn<bool>("interpretOn");
    QTest::addColumn<QString>("unchecked");
    QTest::addColumn<QStringList>("lines");

    QTest::newRow("POLL and its ACK")
        << QList<QByteArray>{mdbFrame(12, 20, 0, "0B0B", FirstMark), mdbFrame(23, 25, 1, "00", FirstMark)} << true << ""
        << QStringList{"<span style='color: green;'>0012 : M-> 0B 0B<br>&nbsp;&nbsp;&nbsp;&nbsp;POLL</span>",
                       "<span style='color: green;'>0003 : S-> 00<br>&nbsp;&nbsp;&nbsp;&nbsp;Peripheral ACK</span>"};
    QTest::newRow("late ACK stays red through the VMC ACK until the next command")
        << QList<QByteArray>{mdbFrame(12, 20, 0, "0B0B", FirstMark), mdbFrame(26, 28, 1, "00", FirstMark),
                             mdbFrame(29, 30, 0, "00", NoMark), mdbFrame(31, 33, 0, "0B0B", FirstMark)}
        << true << ""
        << QStringList{"<span style='color: green;'>0012 : M-> 0B 0B<br>" + F + "POLL</span>",
                       "<span style='color: red;'>0006 : S-> 00<br>" + F + "Peripheral ACK</span>",
                       "<span style='color: red;'>0001 : M-> 00<br>" + F + "VMC ACK</span>",
                       "<span style='color: green;'>0001 : M-> 0B 0B<br>" + F + "POLL</span>"};
    QTest::newRow("switch off: bytes only, colour still chosen")
        << QList<QByteArray>{mdbFrame(12, 20, 0, "0B0B", FirstMark), mdbFrame(30, 32, 1, "00", FirstMark)} << false << ""
        << QStringList{"<span style='color: green;'>0012 : M-> 0B 0B</span>", "<span style='color: red;'>0010 : S-> 00</span>"};
    QTest::newRow("gaps: padded, in full, negative, across the wrap")
        << QList<QByteArray>{mdbFrame(7, 10, 0, "00", NoMark), mdbFrame(12355, 12356, 0, "00", NoMark),
                             mdbFrame(12351, 0xFFFFFFF0u, 0, "00", NoMark), mdbFrame(3, 4, 0, "00", NoMark)}
        << true << ""
        << QStringList{"<span style='color: red;'>0007 : M-> 00<br>" + F + "VMC ACK</span>",
                       "<span style='color: red;'>12345 : M-> 00<br>" + F + "VMC ACK</span>",
                       "<span style='color: red;'>-005 : M-> 00<br>" + F + "VMC ACK</span>",
                       "<span style='color: red;'>0019 : M-> 00<br>" + F + "VMC ACK</span>"};
    QTest::newRow("Poll off hides the POLL and its ACK, not the ACK of COIN TYPE")
        << QList<QByteArray>{mdbFrame(100, 110, 0, "0B0B", FirstMark), mdbFrame(111, 112, 1, "00", FirstMark),
                             mdbFrame(120, 130, 0, "0CFFFF00000A", FirstMark), mdbFrame(132, 133, 1, "00", FirstMark)}
        << true << "poll"
        << QStringList{"-", "-",
                       "<span style='color: green;'>0008 : M-> 0C FF FF 00 00 0A<br>" + F + "COIN TYPE<br>" + F
                           + "Coin Enable Status:<br>" + L + "[1] [1] [1] [1] [1] [1] [1] [1] <br>" + L
                           + "[1] [1] [1] [1] [1] [1] [1] [1] <br>" + F + "Manual Dispense Enable Status:<br>" + L + Z8
                           + "<br>" + L + Z8 + "</span>",
                       "<span style='color: green;'>0002 : S-> 00<br>" + F + "Peripheral ACK</span>"};
    QTest::newRow("Poll off hides the changer's JUST RESET too")
        << QList<QByteArray>{mdbFrame(5, 6, 1, "0B0B", LastMark)} << true << "poll" << QStringList{"-"};
    QTest::newRow("a hidden POLL leaves lastCommand for the reply")
        << QList<QByteArray>{mdbFrame(10, 11, 0, "3131", FirstMark), mdbFrame(12, 13, 0, "3333", FirstMark),
                             mdbFrame(14, 15, 1, "0000", LastMark)}
        << true << "poll"
        << QStringList{"<span style='color: blue;'>0010 : M-> 31 31<br>" + F + "SETUP</span>", "-",
                       "<span style='color: blue;'>0001 : S-> 00 00<br>" + F + "Bill Validator Setup Information<br>Length error</span>"};
    QTest::newRow("first 00 after start is not taken for a POLL's ACK")
        << QList<QByteArray>{mdbFrame(3, 4, 1, "00", FirstMark)} << true << "poll"
        << QStringList{"<span style='color: black;'>0003 : S-> 00<br>" + F + "Peripheral ACK</span>"};
    QTest::newRow("Coin and Card off hide the short RESETs only")
        << QList<QByteArray>{mdbFrame(1, 2, 0, "0808", FirstMark), mdbFrame(3, 4, 0, "080808", FirstMark),
                             mdbFrame(5, 6, 0, "1010", FirstMark), mdbFrame(7, 8, 0, "6060", FirstMark),
                             mdbFrame(9, 10, 0, "3030", FirstMark)}
        << true << "coin,card"
        << QStringList{"-", "<span style='color: green;'>0001 : M-> 08 08 08<br>" + F + FCC + "RESET</span>", "-", "-",
                       "<span style='color: blue;'>0001 : M-> 30 30<br>" + F + "RESET</span>"};
    QTest::newRow("Bill off hides 30 30")
        << QList<QByteArray>{mdbFrame(1, 2, 0, "3030", FirstMark)} << true << "bill" << QStringList{"-"};
    QTest::newRow("odd payload: last byte is data with the mode bit clear")
        << QList<QByteArray>{busFrame(2, 3, 0, 0, hx("0B010B"))} << true << ""
        << QStringList{"<span style='color: green;'>0002 : M-> 0B 0B<br>" + F + "POLL</span>"};
    QTest::newRow("empty payload")
        << QList<QByteArray>{busFrame(2, 3, 0, 0, QByteArray())} << true << ""
        << QStringList{"<span style='color: black;'>0002 : M-> <br>" + F + "Length error</span>"};
    QTest::newRow("any direction byte but 0 is a peripheral")
        << QList<QByteArray>{busFrame(2, 3, 7, 0, hx("0001"))} << true << ""
        << QStringList{"<span style='color: black;'>0002 : S-> 00<br>" + F + "Peripheral ACK</span>"};
    QTest::newRow("a %1 in decoded text takes the next arg, as the log format always did")
        << QList<QByteArray>{mdbFrame(1, 2, 0, "1212", FirstMark), mdbFrame(3, 4, 1, "020A253162", LastMark)} << true << ""
        << QStringList{"<span style='color: brown;'>0001 : M-> 12 12<br>" + F + "POLL</span>",
                       "<span style='color: " + F + ";'>0001 : %6 02 0A 25 31 62<br>S->Display Request (02H)<br>" + F
                           + "Display Time: 1000 ms (10 " + T + " 0.1s units)<br>" + F + "Display Data: brown</span>"};
}

void TestMdbDecoders::renderLine()
{
    QFETCH(QList<QByteArray>, frames);
    QFETCH(bool, interpretOn);
    QFETCH(QString, unchecked);
    QFETCH(QStringList, lines);
    QCOMPARE(frames.size(), lines.size());

    MDB mdb(nullptr);
    MDB::Filters f;
    f.poll = !unchecked.contains("poll");
    f.coin = !unchecked.contains("coin");
    f.bill = !unchecked.contains("bill");
    f.card = !unchecked.contains("card");
    quint32 lastTickEnd = 0;
    int lastCmd = 8888;
    for (int i = 0; i < frames.size(); ++i) {
        const QString got = mdb.renderLine(frames[i], f, interpretOn, lastTickEnd, lastCmd);
        if (lines[i] == "-")
            QVERIFY2(got.isNull(), qPrintable(got));
        else
            QCOMPARE(got, lines[i]);
    }
}

void TestMdbDecoders::hiddenFrameMovesTicksAndLastCmd()
{
    MDB mdb(nullptr);
    MDB::Filters f;
    f.poll = false;
    quint32 lastTickEnd = 0;
    int lastCmd = 8888;
    QVERIFY(mdb.renderLine(mdbFrame(50, 60, 0, "6262", FirstMark), f, true, lastTickEnd, lastCmd).isNull());
    QCOMPARE(lastTickEnd, 60u);
    QCOMPARE(lastCmd, 0x62);
    QCOMPARE(int(mdb.lastCommand), 0); // never interpreted
    mdb.renderLine(mdbFrame(61, 70, 0, "FF", NoMark), f, true, lastTickEnd, lastCmd);
    QCOMPARE(lastCmd, -1); // taken as a signed byte
    mdb.renderLine(busFrame(71, 72, 0, 0, QByteArray()), f, true, lastTickEnd, lastCmd);
    QCOMPARE(lastCmd, 0);
    // Too short for a bus-data frame: nothing read, nothing moved.
    QVERIFY(mdb.renderLine(hx("A55A000E02000000"), f, true, lastTickEnd, lastCmd).isNull());
    QCOMPARE(lastTickEnd, 72u);
}

void TestMdbDecoders::commandSets()
{
    MDB mdb(nullptr);
    QCOMPARE(mdb.coinCommands, (QSet<unsigned char>{0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0F}));
    QCOMPARE(mdb.coinExpansionSubcommands, (QSet<unsigned char>{0x00, 0x01, 0x05}));
    QCOMPARE(mdb.billCommands, (QSet<unsigned char>{0x30, 0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37}));
    QCOMPARE(mdb.cashless1Commands, (QSet<unsigned char>{0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x17}));
    QCOMPARE(mdb.cashless2Commands, (QSet<unsigned char>{0x60, 0x61, 0x62, 0x63, 0x64, 0x65, 0x67}));
    QCOMPARE(mdb.color, QString("black"));
}

QTEST_GUILESS_MAIN(TestMdbDecoders)
#include "tst_mdbdecoders.moc"
