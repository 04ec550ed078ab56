#include "mdb/coin.h"

#include "link/frame.h"
#include "mdb/mdbtext.h"

using namespace MdbText;

namespace {

// Optional features of the MDB coin changer, bits 0 to 3 of the lowest byte.
constexpr CodeText featureBits[] = {
    {0, "Alternative Payout method"},
    {1, "Extended Diagnostic command supported"},
    {2, "Controlled Manual Fill and Payout commands supported"},
    {3, "File Transport Layer (FTL) supported"},
};

// Diagnostic status: exact (main << 8 | sub) codes first ...
constexpr CodeText diagnosticExact[] = {
    {0x0510, "Manual Fill / Payout active<br>"},
    {0x0520, "New Inventory Information Available<br>"},
    {0x1000, "Non-specific error<br>"},
    {0x1001, "Checksum Error #1 (Config field)<br>"},
    {0x1002, "Checksum Error #2 (Secondary field)<br>"},
    {0x1003, "Low line voltage detected<br>"},
    {0x1100, "Non-specific discriminator error<br>"},
    {0x1110, "Flight deck open<br>"},
    {0x1111, "Escrow Return stuck open<br>"},
    {0x1130, "Coin jam in sensor<br>"},
    {0x1141, "Discrimination below standard<br>"},
    {0x1150, "Validation sensor A out of range<br>"},
    {0x1151, "Validation sensor B out of range<br>"},
    {0x1152, "Validation sensor C out of range<br>"},
    {0x1153, "Operating temperature exceeded<br>"},
    {0x1154, "Sizing optics failure<br>"},
    {0x1200, "Non-specific accept gate error<br>"},
    {0x1230, "Coins entered gate but did not exit<br>"},
    {0x1231, "Accept gate alarm active<br>"},
    {0x1240, "Accept gate open, but no coin detected<br>"},
    {0x1250, "Post gate sensor covered before gate opened<br>"},
    {0x1300, "Non-specific separator error<br>"},
    {0x1310, "Sort sensor error<br>"},
    {0x1400, "Non-specific dispenser error<br>"},
    {0x1500, "Non-specific cassette error<br>"},
    {0x1502, "Cassette removed<br>"},
    {0x1503, "Cash box sensor error<br>"},
    {0x1504, "Sunlight on tube sensors<br>"},
};

// ... then the main code alone: its text for any (or any other) sub-code.
constexpr CodeText diagnosticMain[] = {
    {0x01, "Powering up<br>"},
    {0x02, "Powering down<br>"},
    {0x03, "OK - Fully operational<br>"},
    {0x04, "Keypad shifted (MODE key held)<br>"},
    {0x05, "Unknown Sub-code<br>"},
    {0x06, "Inhibited by VMC<br>"},
    {0x10, "Unknown General Error<br>"},
    {0x11, "Unknown Discriminator Error<br>"},
    {0x12, "Unknown Accept Gate Error<br>"},
    {0x13, "Unknown Separator Error<br>"},
    {0x14, "Unknown Dispenser Error<br>"},
    {0x15, "Unknown Cassette Error<br>"},
};

const char *diagnosticText(unsigned char main, unsigned char sub)
{
    if (const char *t = lookup(diagnosticExact, (main << 8) | sub))
        return t;
    return lookup(diagnosticMain, main, "Unknown Main Status Code<br>");
}

// "%1%2<br>" with the list indent for each set bit 0 to 3 of mask, in
// order; an empty list gives the list indent and noneText once.
QString featureList(unsigned char mask, const char *noneText)
{
    QString out;
    for (const CodeText &f : featureBits)
        if (mask & (1u << f.code))
            out += QStringLiteral("%1%2<br>").arg(listIndent, QLatin1String(f.text));
    if (out.isEmpty())
        out = QStringLiteral("%1%2<br>").arg(listIndent, QLatin1String(noneText));
    chopBr(out);
    return out;
}

} // namespace

Coin::Coin(QObject *parent)
    : QObject(parent)
{
}

QString Coin::changerDiagnosticStatus(const QByteArray &data)
{
    return changerDiagnosticStatus(reinterpret_cast<const unsigned char *>(data.constData()), int(data.size()));
}

QString Coin::changerDiagnosticStatus(const unsigned char *p, int n)
{
    QString text = QStringLiteral("Changer Diagnostic Status<br>");
    const int pairs = n > 0 ? (n - 1) / 2 : 0;
    for (int i = 0; i < pairs; ++i) {
        const unsigned char main = p[2 * i];
        const unsigned char sub = p[2 * i + 1];
        text += QStringLiteral("%1Status Code [%2 / %3]: ").arg(fieldIndent, hex2(main), hex2(sub));
        text += QLatin1String(diagnosticText(main, sub));
    }
    chopBr(text);
    return text;
}

QString Coin::coinType(const unsigned char *p, int n)
{
    QString text = QStringLiteral("COIN TYPE<br>");
    if (n < 3)
        return text + fieldLengthError();
    text += QStringLiteral("%1Coin Enable Status:<br>").arg(fieldIndent);
    text += bitRow(be16(p + 1), true);
    if (n < 5)
        return text + QStringLiteral("<br>") + fieldLengthError();
    text += QStringLiteral("<br>%1Manual Dispense Enable Status:<br>").arg(fieldIndent);
    text += bitRow(be16(p + 3), true);
    return text;
}

QString Coin::expansion(const unsigned char *p, int n)
{
    QString text = QStringLiteral("EXPANSION /");
    if (n < 2)
        return text + QStringLiteral("<br>") + fieldLengthError();
    switch (p[1]) {
    case 0x00:
        return text + QStringLiteral(" IDENTIFICATION");
    case 0x01:
        return text + QStringLiteral(" FEATURE ENABLE<br>") + featureEnable(p, n);
    case 0x05:
        return text + QStringLiteral(" SEND DIAGNOSTIC STATUS");
    default:
        return text + QStringLiteral(" unknow subcommand 0x%1").arg(hex2(p[1]));
    }
}

QString Coin::featureEnable(const unsigned char *p, int n)
{
    if (n < 6)
        return fieldLengthError();
    return QStringLiteral("%1Optional Features Enable:<br>").arg(fieldIndent)
        + featureList(p[5], "No features enabled.");
}

QString Coin::setupReply(const unsigned char *p, int n)
{
    if (n != 24)
        return QString();
    QString text = QStringLiteral("Changer setup information<br>");
    text += QStringLiteral("%1Changer Feature Level [%2]<br>").arg(fieldIndent).arg(int(p[0]));
    text += fieldIndent + bcdCountryLine(p[1], p[2]);
    text += QStringLiteral("%1Coin Scaling Factor [%2]<br>").arg(fieldIndent, hex2(p[3]));
    text += QStringLiteral("%1Decimal Places [%2]<br>").arg(fieldIndent).arg(int(p[4]));
    text += QStringLiteral("%1Coin Type Routing:<br>").arg(fieldIndent);
    text += bitRow(be16(p + 5), false);
    text += QStringLiteral("<br>%1Coin Type Credits:<br>").arg(fieldIndent);
    QString credits[16];
    for (int i = 0; i < 16; ++i)
        credits[i] = QString::number(p[7 + i]);
    text += sixteenRow(credits);
    return text;
}

QString Coin::tubeStatus(const unsigned char *p, int n)
{
    QString text = QStringLiteral("Changer tube status<br>");
    if (n < 2)
        return text + fieldLengthError();
    text += QStringLiteral("%1Tube Full Status:<br>").arg(fieldIndent);
    text += bitRow(be16(p), true);
    if (n < 18)
        return text + QStringLiteral("<br>") + fieldLengthError();
    text += QStringLiteral("<br>%1Coin Counts for each tube:<br>").arg(fieldIndent);
    int largest = 0;
    for (int i = 2; i < 18; ++i)
        largest = qMax(largest, int(p[i]));
    const int width = int(QString::number(largest).size());
    QString counts[16];
    for (int i = 0; i < 16; ++i)
        counts[i] = QStringLiteral("%1").arg(int(p[2 + i]), width, 10, QLatin1Char(' '));
    text += sixteenRow(counts);
    return text;
}

QString Coin::identification(const unsigned char *p, int n)
{
    if (n != 34)
        return QString();
    const auto chars = [p](int from, int count) {
        return QString::fromUtf8(reinterpret_cast<const char *>(p + from), count);
    };
    QString text = QStringLiteral("VMC Command Code Sub-Command Changer Response Data (EXPANSION)<br>");
    text += QStringLiteral("%1Manufacturer Code [%2]<br>").arg(fieldIndent).arg(chars(0, 3));
    text += QStringLiteral("%1Serial Number [%2]<br>").arg(fieldIndent).arg(chars(3, 12));
    text += QStringLiteral("%1Model #/Tuning Revision [%2]<br>").arg(fieldIndent).arg(chars(15, 12));
    text += QStringLiteral("%1Software Version [%2%3%4%5]<br>")
                .arg(fieldIndent)
                .arg(p[27] >> 4)
                .arg(p[27] & 0x0F)
                .arg(p[28] >> 4)
                .arg(p[28] & 0x0F);
    text += QStringLiteral("%1Optional Features:<br>").arg(fieldIndent);
    text += featureList(p[32], "No optional features supported.");
    return text;
}
