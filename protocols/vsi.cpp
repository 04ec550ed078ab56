#include "protocols/vsi.h"

#include "link/codetext.h"
#include "link/frame.h"
#include "protocols/bustransfer.h"

namespace {

constexpr CodeText recordNames[] = {
    {0xA2, "POLL"},
    {0xA0, "ACK "},
    {0xA1, "NAK "},
    {0xE0, "SERVICE_RPT "},
    {0xE1, "ACTION_RPT "},
    {0xE2, "INFO_RPT<br>"},
    {0xE7, "GET_UPDATA "},
};

const QString indent = QStringLiteral("&nbsp;&nbsp;&nbsp;&nbsp;");

// One indented row per field; the caller starts the first row.
QString field(const char *label, const QString &value)
{
    return QStringLiteral("%1%2: %3<br>").arg(indent, QLatin1String(label), value);
}

const QString lengthError = indent + QStringLiteral("Length error<br>");

QString hexValue(uint value, int digits)
{
    return QStringLiteral("0x%1").arg(value, digits, 16, QLatin1Char('0'));
}

// Status report: door switch, cabinet temperature, fault code.
QString serviceFields(const unsigned char *p, int n)
{
    if (n < 8)
        return lengthError;
    return field("Door", p[4] ? QStringLiteral("open") : QStringLiteral("closed"))
        + field("Temperature", QString::number(static_cast<signed char>(p[5])) + QStringLiteral(" C"))
        + field("Fault code", hexValue(be16(p + 6), 4));
}

// Sales report: one vend, its price and how it was paid.
QString actionFields(const unsigned char *p, int n)
{
    if (n < 12)
        return lengthError;
    QString payment;
    switch (p[7]) {
    case 0: payment = QStringLiteral("cash"); break;
    case 1: payment = QStringLiteral("cashless"); break;
    default: payment = QStringLiteral("unknown ") + hexValue(p[7], 2); break;
    }
    return field("Column", QString::number(p[4]))
        + field("Price", QString::number(be16(p + 5)))
        + field("Payment", payment)
        + field("Sales count", QString::number(be32(p + 8)));
}

// Configuration report: who the machine is and how it counts money.
QString infoFields(const unsigned char *p, int n)
{
    if (n < 10)
        return lengthError;
    return field("Machine ID", QString::number(be32(p + 4)))
        + field("Columns", QString::number(p[8]))
        + field("Decimal places", QString::number(p[9]));
}

} // namespace

VSI::VSI(MainWindow *mainWindow)
    : QObject(nullptr), mainWindow(mainWindow)
{
}

QString VSI::interpretor(const QByteArray &record)
{
    const auto *p = reinterpret_cast<const unsigned char *>(record.constData());
    const int n = int(record.size());
    if (n < 4)
        return QStringLiteral("Length error");
    const char *name = lookup(recordNames, p[3]);
    if (!name)
        return QStringLiteral("Unknow CMD 0x%1").arg(uint(p[3]), 2, 16, QLatin1Char('0'));
    QString fields;
    switch (p[3]) {
    case 0xE0: fields = serviceFields(p, n); break;
    case 0xE1: fields = actionFields(p, n); break;
    case 0xE2: fields = infoFields(p, n); break;
    default: break;
    }
    QString text = QLatin1String(name);
    if (fields.isEmpty())
        return text;
    // INFO_RPT's name already ends its row.
    if (!text.endsWith(QLatin1String("<br>")))
        text += QLatin1String("<br>");
    fields.chop(4); // the last row's <br>
    return text + fields;
}
