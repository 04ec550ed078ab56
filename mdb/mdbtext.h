#ifndef MDBTEXT_H
#define MDBTEXT_H

// Shared pieces of the MDB decoders: indents, the
// sixteen-value rows, the trailing "<br>" removal, the BCD country code line
// and the {code, text} tables with their one lookup helper.

#include "link/codetext.h"

#include <QString>
#include <QtGlobal>

#include <cstddef>

namespace MdbText {

// "&nbsp;" four times: opens a field line.
extern const QString fieldIndent;
// "&nbsp;" eight times: opens every row of a list.
extern const QString listIndent;

// The list indent, then "[v] " for each of the sixteen values, with
// "<br>" and the list indent again after the eighth; ends with "] ".
QString sixteenRow(const QString (&values)[16]);

// Bit row of a 16-bit mask: bit 15 down to bit 0 (highFirst) or bit 0 up to
// bit 15, each bit as 0 or 1, in a sixteen-value row.
QString bitRow(quint16 mask, bool highFirst);

// Removes one trailing "<br>" if the text ends with it.
void chopBr(QString &text);

// "Country/Currency Code ISO 4217 [%1%2%3]<br>" when the high half of b1 is
// not 0, else "Country/Currency Code International Telephone Code
// [%1%2%3]<br>", filled with the low half of b1 and both halves of b2 in
// decimal (the leading BCD digit is not shown). No indent.
QString bcdCountryLine(unsigned char b1, unsigned char b2);

// Two hexadecimal digits, lower case, zero-padded ("0a").
inline QString hex2(unsigned v)
{
    return QStringLiteral("%1").arg(v, 2, 16, QLatin1Char('0'));
}

// "%1Length error" with the field indent.
QString fieldLengthError();

using ::CodeText;
using ::lookup;

} // namespace MdbText

#endif // MDBTEXT_H
