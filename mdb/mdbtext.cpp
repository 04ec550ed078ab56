#include "mdb/mdbtext.h"

namespace MdbText {

const QString fieldIndent = QStringLiteral("&nbsp;&nbsp;&nbsp;&nbsp;");
const QString listIndent = QStringLiteral("&nbsp;&nbsp;&nbsp;&nbsp;&nbsp;&nbsp;&nbsp;&nbsp;");

QString sixteenRow(const QString (&values)[16])
{
    QString out = QStringLiteral("%1").arg(listIndent);
    for (int i = 0; i < 16; ++i) {
        out += QStringLiteral("[%1] ").arg(values[i]);
        if (i == 7)
            out += QStringLiteral("<br>%1").arg(listIndent);
    }
    return out;
}

QString bitRow(quint16 mask, bool highFirst)
{
    QString values[16];
    for (int i = 0; i < 16; ++i) {
        const int bit = highFirst ? 15 - i : i;
        values[i] = QLatin1Char((mask >> bit) & 1 ? '1' : '0');
    }
    return sixteenRow(values);
}

void chopBr(QString &text)
{
    if (text.endsWith(QLatin1String("<br>")))
        text.chop(4);
}

QString bcdCountryLine(unsigned char b1, unsigned char b2)
{
    const QString tmpl = (b1 >> 4) == 0
        ? QStringLiteral("Country/Currency Code International Telephone Code [%1%2%3]<br>")
        : QStringLiteral("Country/Currency Code ISO 4217 [%1%2%3]<br>");
    return tmpl.arg(b1 & 0x0F).arg(b2 >> 4).arg(b2 & 0x0F);
}

QString fieldLengthError()
{
    return QStringLiteral("%1Length error").arg(fieldIndent);
}

} // namespace MdbText
