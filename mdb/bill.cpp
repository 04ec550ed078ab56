#include "mdb/bill.h"

#include "link/frame.h"
#include "mdb/mdbtext.h"

using namespace MdbText;

namespace {

// Bits 6 to 4 of a POLL status byte 0x80 to 0xFF.
constexpr CodeText billRouting[] = {
    {0, "BILL STACKED"},
    {1, "ESCROW POSITION"},
    {2, "BILL RETURNED"},
    {3, "BILL TO RECYCLER"},
    {4, "DISABLED BILL REJECTED"},
    {5, "BILL TO RECYCLER (MANUAL FILL)"},
    {6, "MANUAL DISPENSE"},
    {7, "TRANSFERRED FROM RECYCLER TO CASHBOX"},
};

// POLL status bytes 0x01 to 0x0C.
constexpr CodeText billStatus[] = {
    {0x01, "Defective Motor<br>"},
    {0x02, "Sensor Problem<br>"},
    {0x03, "Validator Busy<br>"},
    {0x04, "ROM Checksum Error<br>"},
    {0x05, "Validator Jammed<br>"},
    {0x06, "Validator Reset<br>"},
    {0x07, "Bill Removed<br>"},
    {0x08, "Cashbox Out of Position<br>"},
    {0x09, "Validator Disabled<br>"},
    {0x0A, "Invalid Escrow Request<br>"},
    {0x0B, "Bill Rejected<br>"},
    {0x0C, "Possible Credited Bill Removal<br>"},
};

// "[n] " for each set bit n of mask, from 0 to 15.
QString setBits(quint16 mask)
{
    QString out;
    for (int n = 0; n < 16; ++n)
        if (mask & (1u << n))
            out += QStringLiteral("[%1] ").arg(n);
    return out;
}

QString field(const char *tmpl, const QString &value)
{
    return QString::fromLatin1(tmpl).arg(fieldIndent).arg(value);
}

QString field(const char *tmpl, int value)
{
    return field(tmpl, QString::number(value));
}

} // namespace

Bill::Bill()
    : QObject(nullptr)
{
}

QString Bill::setup(const unsigned char *p, int n)
{
    QString text = QStringLiteral("Bill Validator Setup Information<br>");
    if (n != 27)
        return text + QStringLiteral("Length error");
    text += field("%1Bill Validator Feature Level [%2]<br>", p[0]);
    text += fieldIndent + bcdCountryLine(p[1], p[2]);
    text += field("%1Bill Scaling Factor [%2]<br>", be16(p + 3));
    text += field("%1Decimal Places [%2]<br>", p[5]);
    text += field("%1Stacker Capacity [%2]<br>", be16(p + 6));
    text += field("%1Bill Security Levels [%2]<br>", be16(p + 8));
    text += field("%1Escrow Capability [%2]<br>", p[10] == 0xFF ? QStringLiteral("Yes") : QStringLiteral("No"));
    text += QStringLiteral("%1Bill Type Credits:<br>").arg(fieldIndent);
    QString credits[16];
    for (int i = 0; i < 16; ++i)
        credits[i] = QStringLiteral("%1").arg(int(p[11 + i]), 2, 10, QLatin1Char('0'));
    return text + sixteenRow(credits);
}

QString Bill::poll(const unsigned char *p, int n)
{
    QString text = QStringLiteral("POLL Status<br>");
    if (n == 0)
        return text + QStringLiteral("%1ACK (No activity)").arg(fieldIndent);
    if (n < 0 || n > 16)
        return text + fieldLengthError();
    for (int i = 0; i < n; ++i) {
        const unsigned char b = p[i];
        text += fieldIndent;
        if (b & 0x80)
            text += QStringLiteral("Bill Routing: %1, Bill Type: %2<br>")
                        .arg(QLatin1String(lookup(billRouting, (b >> 4) & 0x07)))
                        .arg(b & 0x0F);
        else if (const char *status = lookup(billStatus, b))
            text += QLatin1String(status);
        else if (b >= 0x40 && b <= 0x5F)
            text += QStringLiteral("Attempts While Disabled: %1<br>").arg(b & 0x1F);
        else
            text += QStringLiteral("Unknown Status<br>");
    }
    chopBr(text);
    return text;
}

QString Bill::stacker(const unsigned char *p, int n)
{
    QString text = QStringLiteral("STACKER Status<br>");
    if (n != 2)
        return text + fieldLengthError();
    text += field("%1Stacker Full Flag: %2<br>", p[0] & 0x80 ? QStringLiteral("Yes") : QStringLiteral("No"));
    text += field("%1Number of Bills in Stacker: %2<br>", be16(p) & 0x7FFF);
    chopBr(text);
    return text;
}

QString Bill::security(const unsigned char *p, int n)
{
    QString text = QStringLiteral("SECURITY<br>");
    if (n != 2)
        return text + fieldLengthError();
    text += QStringLiteral("%1Bill Types with High Security:<br>").arg(fieldIndent);
    text += QStringLiteral("%1").arg(listIndent) + setBits(be16(p));
    chopBr(text);
    return text;
}

QString Bill::billType(const unsigned char *p, int n)
{
    QString text = QStringLiteral("BILL TYPE<br>");
    if (n != 4)
        return text + fieldLengthError();
    const quint16 enable = be16(p);
    const quint16 escrowTypes = be16(p + 2);
    if (enable == 0)
        text += QStringLiteral("%1Action: Bill Validator Disabled<br>").arg(fieldIndent);
    else
        text += QStringLiteral("%1Enabled Bill Types:<br>").arg(fieldIndent)
            + QStringLiteral("%1").arg(listIndent) + setBits(enable) + QStringLiteral("<br>");
    if (escrowTypes == 0)
        text += QStringLiteral("%1Action: Escrow are disabled<br>").arg(fieldIndent);
    else
        text += QStringLiteral("%1Escrow Enabled Bill Types:<br>").arg(fieldIndent)
            + QStringLiteral("%1").arg(listIndent) + setBits(escrowTypes);
    chopBr(text);
    return text;
}

QString Bill::escrow(const unsigned char *p, int n)
{
    QString text = QStringLiteral("Escrow Status<br>");
    if (n != 1)
        return text + fieldLengthError();
    if (p[0] == 0x00)
        text += QStringLiteral("%1Action: Return bill in escrow position<br>").arg(fieldIndent);
    else if (p[0] & 0x01)
        text += QStringLiteral("%1Action: Stack the bill<br>").arg(fieldIndent);
    else
        text += QStringLiteral("%1Action: Invalid / Reserved value<br>").arg(fieldIndent);
    chopBr(text);
    return text;
}
