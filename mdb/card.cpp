#include "mdb/card.h"

#include "link/frame.h"
#include "mdb/mdbtext.h"

using namespace MdbText;

namespace {

constexpr CodeText vmcFeatureLevels[] = {
    {1, "1 VMC not capable / advanced features not supported"},
    {2, "2 VMC capable and willing to perform advanced features"},
    {3, "3 VMC supports level 02 + optional expansion features"},
};

constexpr CodeText displayFormats[] = {
    {0, "Numbers, uppercase letters, blank, decimal point"},
    {1, "Full ASCII"},
};

constexpr CodeText readerFeatureLevels[] = {
    {1, "No advanced features"},
    {2, "Supports advanced features"},
    {3, "Level 2+ with optional features"},
};

// Optional feature bits of EXPANSION 04; bit 1 is listed set or clear.
constexpr CodeText optionalFeatures[] = {
    {0, "File Transport Layer supported"},
    {1, "32 bit monetary format"},
    {2, "Enable multi currency / multi lingual"},
    {3, "Enable negative vend"},
    {4, "Enable data entry"},
    {5, "Enable 'Always Idle' state"},
    {6, "Allow 'Remote Vend' feature"},
    {7, "Allow 'Basket / Partial Refund / Options Price' feature"},
    {8, "Allow 'Coupon' feature"},
    {9, "Allow 'Ask Begin Session' feature"},
};

// Option lines of Reader Config Data, bits 0 to 3 of byte 7: %2 takes the
// list indent, %3 Yes or No.
constexpr CodeText readerOptions[] = {
    {0, "%2Restore funds: %3<br>"},
    {1, "%2Multivend capable: %3<br>"},
    {2, "%2Has display: %3<br>"},
    {3, "%2Supports VEND/CASH SALE: %3<br>"},
};

// A field line without a value.
QString line(const char *tmpl)
{
    return QString::fromLatin1(tmpl).arg(fieldIndent);
}

QString line(const char *tmpl, const QString &value)
{
    return QString::fromLatin1(tmpl).arg(fieldIndent).arg(value);
}

QString line(const char *tmpl, qint64 value)
{
    return line(tmpl, QString::number(value));
}

QString hexN(quint32 value, int digits)
{
    return QStringLiteral("%1").arg(value, digits, 16, QLatin1Char('0'));
}

QString latin1(const unsigned char *p, int count)
{
    return QString::fromLatin1(reinterpret_cast<const char *>(p), count);
}

QString yesNo(bool on)
{
    return on ? QStringLiteral("Yes") : QStringLiteral("No");
}

// Header, then the length error line when n is below the minimum; empty
// when the fields may be read.
bool tooShort(QString &text, const char *header, int n, int minimum)
{
    text = QString::fromLatin1(header);
    if (n >= minimum)
        return false;
    text += fieldLengthError();
    return true;
}

QString finish(QString text)
{
    chopBr(text);
    return text;
}

QString unknownSubcommand(unsigned char code)
{
    return QStringLiteral("%1Unknown Subcommand: 0x%2").arg(fieldIndent, hex2(code));
}

// A sub-command by its first byte: a fixed name, or the decoder of the whole message.
struct SubDecoder
{
    unsigned char code;
    const char *name;
    QString (*decode)(const unsigned char *p, int n);
};

template <std::size_t N>
QString dispatch(const SubDecoder (&table)[N], const unsigned char *p, int n)
{
    if (n < 1)
        return fieldLengthError();
    for (const SubDecoder &sub : table)
        if (sub.code == p[0])
            return sub.decode ? sub.decode(p, n) : QString::fromLatin1(sub.name);
    return unknownSubcommand(p[0]);
}

// The identification record shared by the VMC's Request ID and the reader's
// Peripheral ID: bytes 1 to 29.
QString identificationRecord(const char *header, const unsigned char *p, int n)
{
    QString text;
    if (tooShort(text, header, n, 30))
        return text;
    text += line("%1Manufacturer Code: %2<br>", latin1(p + 1, 3));
    text += line("%1Serial Number: %2<br>", latin1(p + 4, 12));
    text += line("%1Model Number: %2<br>", latin1(p + 16, 12));
    text += line("%1Software Version: %2<br>", QStringLiteral("%1.%2.%3.%4")
                                                     .arg(p[28] >> 4)
                                                     .arg(p[28] & 0x0F)
                                                     .arg(p[29] >> 4)
                                                     .arg(p[29] & 0x0F));
    return finish(text);
}

} // namespace

namespace Cashless {

QString setupConfigData(const unsigned char *p, int n)
{
    QString text;
    if (tooShort(text, "Setup Config Data<br>", n, 5))
        return text;
    text += line("%1VMC Feature Level : %2<br>",
                 QLatin1String(lookup(vmcFeatureLevels, p[1], "Unknown Feature Level")));
    text += line("%1Columns on Display : %2<br>", p[2]);
    text += line("%1Rows on Display : %2<br>", p[3]);
    text += line("%1Display Information : 0x%2<br>", hex2(p[4]));
    text += line("%1Display Type: 0x%2<br>", hex2(p[4] >> 3));
    text += line("%1Display Format: %2<br>",
                 QLatin1String(lookup(displayFormats, p[4] & 0x07, "Unused / Unassigned")));
    return finish(text);
}

QString setupMaxMinPrice(const unsigned char *p, int n)
{
    QString text;
    if (tooShort(text, "Setup Max/Min Prices<br>", n, 5))
        return text;
    const quint16 maximum = be16(p + 1);
    const quint16 minimum = be16(p + 3);
    text += maximum == 0xFFFF ? line("%1Maximum Price: Unknown<br>")
                              : line("%1Maximum Price (scaled): %2<br>", maximum);
    text += minimum == 0x0000 ? line("%1Minimum Price: Unknown<br>")
                              : line("%1Minimum Price (scaled): %2<br>", minimum);
    return finish(text);
}

QString vendRequest(const unsigned char *p, int n)
{
    QString text;
    if (tooShort(text, "Vend Request<br>", n, 5))
        return text;
    text += line("%1Item Price (scaled): %2<br>", be16(p + 1));
    const quint16 item = be16(p + 3);
    text += item == 0xFFFF ? line("%1Item Number: Undefined / Not Implemented<br>")
                           : line("%1Item Number: %2<br>", item);
    return finish(text);
}

QString vendSuccess(const unsigned char *p, int n)
{
    QString text;
    if (tooShort(text, "Vend Success<br>", n, 3))
        return text;
    const quint16 item = be16(p + 1);
    if (item == 0xFFFF)
        text += line("%1Item Number: Undefined (FFFFh)<br>");
    else
        text += QStringLiteral("%1Item Number: %2 (0x%3)<br>").arg(fieldIndent).arg(item).arg(hexN(item, 4));
    return finish(text);
}

QString expansionRequestID(const unsigned char *p, int n)
{
    return identificationRecord("Expansion Request ID<br>", p, n);
}

QString expansionOptionalFeature(const unsigned char *p, int n)
{
    QString text;
    if (tooShort(text, "Expansion Optional Feature Bit Enable<br>", n, 5))
        return text;
    const quint32 mask = be32(p + 1);
    text += QStringLiteral("%1Enabled Features:<br>").arg(fieldIndent);
    for (const CodeText &f : optionalFeatures) {
        const bool set = mask & (1u << f.code);
        if (f.code == 1)
            text += QStringLiteral("%1%2<br>").arg(listIndent, set ? QLatin1String(f.text) : QLatin1String("16 bit monetary format"));
        else if (set)
            text += QStringLiteral("%1%2<br>").arg(listIndent, QLatin1String(f.text));
    }
    return finish(text);
}

QString readerConfigData(const unsigned char *p, int n)
{
    QString text;
    if (tooShort(text, "Reader Config Data<br>", n, 8))
        return text;
    text += QStringLiteral("%1Reader Feature Level [%2] - %3<br>")
                .arg(fieldIndent)
                .arg(int(p[1]))
                .arg(QLatin1String(lookup(readerFeatureLevels, p[1], "Unknown feature level")));
    const quint16 country = be16(p + 2);
    const QString countryText = country < 0x1000
        ? QStringLiteral("International Telephone Code [%1]").arg(hexN(country, 4))
        : QStringLiteral("ISO 4217 Currency Code [%1]").arg(hexN(country, 4));
    text += line("%1%2<br>", countryText);
    text += line("%1Scale Factor [%2]<br>", p[4]);
    text += line("%1Decimal Places [%2]<br>", p[5]);
    text += line("%1Application Maximum Response Time [%2 s]<br>", p[6]);
    text += QStringLiteral("%1Miscellaneous Options:<br>").arg(fieldIndent);
    for (const CodeText &o : readerOptions)
        text += QString::fromLatin1(o.text).arg(listIndent).arg(yesNo(p[7] & (1u << o.code)));
    return finish(text);
}

QString displayRequest(const unsigned char *p, int n)
{
    QString text;
    if (tooShort(text, "Display Request (02H)<br>", n, 3))
        return text;
    text += QStringLiteral("%1Display Time: %2 ms (%3 \u00D7 0.1s units)<br>")
                .arg(fieldIndent)
                .arg(p[1] * 100)
                .arg(int(p[1]));
    text += line("%1Display Data: %2<br>", latin1(p + 2, qMin(n - 2, 32)));
    return finish(text);
}

QString beginSession(const unsigned char *p, int n)
{
    QString text;
    if (tooShort(text, "Begin Session<br>", n, 10))
        return text;
    const quint16 funds = be16(p + 1);
    if (funds == 0xFFFF)
        text += line("%1Funds Available: Not yet determined<br>");
    else if (funds == 0xFFFE)
        text += line("%1Funds Available: Max (FFFEh)<br>");
    else
        text += line("%1Funds Available (scaled): %2<br>", funds);
    const quint32 media = be32(p + 3);
    text += media == 0xFFFFFFFFu ? line("%1Payment Media ID: Unknown<br>")
                                 : line("%1Payment Media ID: 0x%2<br>", hexN(media, 8));
    text += line("%1Payment Type: 0x%2<br>", hex2(p[7]));
    text += QStringLiteral("%1Payment Data: Z9=%2, Z10=%3<br>").arg(fieldIndent).arg(int(p[8])).arg(int(p[9]));
    return finish(text);
}

QString vendApproved(const unsigned char *p, int n)
{
    QString text;
    if (tooShort(text, "Vend Approved<br>", n, 3))
        return text;
    const quint16 amount = be16(p + 1);
    text += amount == 0xFFFF ? line("%1Vend Amount: Electronic token used<br>")
                             : line("%1Vend Amount (scaled): %2<br>", amount);
    return finish(text);
}

QString peripheralID(const unsigned char *p, int n)
{
    return identificationRecord("Peripheral ID<br>", p, n);
}

} // namespace Cashless

using namespace Cashless;

Card::Card(QObject *parent)
    : QObject(parent)
{
}

QString Card::setup(const unsigned char *p, int n)
{
    static constexpr SubDecoder table[] = {{0x00, nullptr, setupConfigData}, {0x01, nullptr, setupMaxMinPrice}};
    return dispatch(table, p, n);
}

QString Card::vend(const unsigned char *p, int n)
{
    static constexpr SubDecoder table[] = {{0x00, nullptr, vendRequest}, {0x01, "VEND CANCEL", nullptr},
                                           {0x02, nullptr, vendSuccess}, {0x04, "SESSION COMPLETE", nullptr}};
    return dispatch(table, p, n);
}

QString Card::expansion(const unsigned char *p, int n)
{
    static constexpr SubDecoder table[] = {{0x00, nullptr, expansionRequestID}, {0x04, nullptr, expansionOptionalFeature}};
    return dispatch(table, p, n);
}

QString Card::poll(const unsigned char *p, int n)
{
    static constexpr SubDecoder table[] = {
        {0x00, "Just Reset", nullptr},     {0x01, nullptr, readerConfigData}, {0x02, nullptr, displayRequest},
        {0x03, nullptr, beginSession},     {0x05, nullptr, vendApproved},     {0x06, "VEND DENIED", nullptr},
        {0x07, "END SESSION", nullptr},    {0x09, nullptr, peripheralID}};
    return dispatch(table, p, n);
}
