#include "protocols/linebuilder.h"

#include "link/frame.h"
#include "protocols/bustransfer.h"
#include "protocols/vts.h"

LineBuilder::LineBuilder(const LineOptions &options)
    : options(options)
{
}

QString LineBuilder::line(const QByteArray &frame)
{
    if (!holdsTransfer(frame) || static_cast<unsigned char>(frame.at(4)) != BoxFrame::KindBusData)
        return QString();
    switch (static_cast<signed char>(frame.at(BoxFrame::modeOffset))) {
    case 0:
        return mdb.renderLine(frame, options.mdb, options.interpret, mdbTickEnd, mdbLastCmd);
    case 1:
        return plainStep(frame, vsiTickEnd);
    case 2:
        return VTS::step(frame, vtsTickEnd, vtsSync);
    case 4:
        return Iebus::step(frame, iebusTickEnd, options.iebus, options.interpret, &iebusColor);
    case 3: case 5: case 6: case 7: case 8:
        return plainStep(frame, serialTickEnd);
    default:
        return QString();
    }
}

namespace {

// The character an entity stands for, or a null QChar when it is not one the
// view would resolve; *length gets the entity's length with '&' and ';'.
QChar entity(const QString &text, int at, int *length)
{
    const int end = int(text.indexOf(QLatin1Char(';'), at));
    if (end < 0 || end - at > 10)
        return QChar();
    *length = end - at + 1;
    const QString name = text.mid(at + 1, end - at - 1);
    if (name == QLatin1String("nbsp"))
        return QLatin1Char(' '); // the plain-text save turns no-break blanks into blanks
    if (name == QLatin1String("lt"))
        return QLatin1Char('<');
    if (name == QLatin1String("gt"))
        return QLatin1Char('>');
    if (name == QLatin1String("amp"))
        return QLatin1Char('&');
    if (name == QLatin1String("quot"))
        return QLatin1Char('"');
    if (name == QLatin1String("apos"))
        return QLatin1Char('\'');
    if (name.startsWith(QLatin1Char('#'))) {
        bool ok = false;
        const bool hex = name.size() > 1 && (name.at(1) == QLatin1Char('x') || name.at(1) == QLatin1Char('X'));
        const uint code = hex ? name.mid(2).toUInt(&ok, 16) : name.mid(1).toUInt(&ok, 10);
        if (ok && code > 0 && code < 0xD800)
            return QChar(char16_t(code));
    }
    return QChar();
}

} // namespace

QString plainText(const QString &line)
{
    // The view takes text without markup as plain text.
    if (!line.startsWith(QLatin1Char('<')))
        return line;
    QString out;
    out.reserve(line.size());
    bool lineStart = true;
    bool lastBlank = false;
    for (int i = 0; i < line.size(); ++i) {
        const QChar c = line.at(i);
        if (c == QLatin1Char('<')) {
            const int close = int(line.indexOf(QLatin1Char('>'), i));
            if (close < 0)
                break; // the view drops an unclosed tag and what follows it
            const QString tag = line.mid(i + 1, close - i - 1).trimmed().toLower();
            if (tag == QLatin1String("br") || tag.startsWith(QLatin1String("br ")) || tag.startsWith(QLatin1String("br/"))) {
                out += QLatin1Char('\n');
                lineStart = true;
                lastBlank = false;
            }
            i = close;
            continue;
        }
        if (c == QLatin1Char(' ') || c == QLatin1Char('\t') || c == QLatin1Char('\n') || c == QLatin1Char('\r')) {
            if (!lineStart && !lastBlank)
                out += QLatin1Char(' ');
            lastBlank = !lineStart;
            continue;
        }
        int length = 1;
        const QChar resolved = c == QLatin1Char('&') ? entity(line, i, &length) : QChar();
        out += resolved.isNull() ? c : resolved;
        i += resolved.isNull() ? 0 : length - 1;
        lineStart = false;
        lastBlank = false;
    }
    return out;
}
