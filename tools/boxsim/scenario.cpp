#include "scenario.h"

#include <QFile>

namespace {

struct Token
{
    QByteArray text;
    bool quoted = false;
};

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r';
}

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Tokens go into error messages: keep them short and printable.
QString shown(const QByteArray &token)
{
    QString out;
    for (int i = 0; i < token.size() && i < 24; ++i) {
        const auto c = static_cast<unsigned char>(token.at(i));
        out += (c >= 0x20 && c < 0x7F) ? QString(QChar(c)) : QStringLiteral("\\x%1").arg(c, 2, 16, QLatin1Char('0'));
    }
    if (token.size() > 24)
        out += QStringLiteral("...");
    return out;
}

// Splits one line (without its newline) into tokens; stops at a # outside
// quotes. Returns false with why on an unterminated string.
bool tokenize(const QByteArray &line, QVector<Token> &tokens, QString &why)
{
    int i = 0;
    const int n = int(line.size());
    while (i < n) {
        const char c = line.at(i);
        if (isBlank(c)) {
            ++i;
            continue;
        }
        if (c == '#')
            break;
        Token t;
        if (c == '"') {
            const int close = int(line.indexOf('"', i + 1));
            if (close < 0) {
                why = QStringLiteral("unterminated string");
                return false;
            }
            t.text = line.mid(i + 1, close - i - 1);
            t.quoted = true;
            i = close + 1;
            // A mode-bit mark or other text glued to a string is a typo.
            if (i < n && !isBlank(line.at(i)) && line.at(i) != '#') {
                why = QStringLiteral("unexpected '%1' after a string").arg(shown(line.mid(i, 1)));
                return false;
            }
        } else {
            int end = i;
            while (end < n && !isBlank(line.at(end)) && line.at(end) != '#' && line.at(end) != '"')
                ++end;
            t.text = line.mid(i, end - i);
            i = end;
        }
        tokens.append(t);
    }
    return true;
}

bool parseNumber(const QByteArray &token, quint64 limit, quint64 &value)
{
    if (token.isEmpty() || token.size() > 10)
        return false;
    quint64 v = 0;
    for (char c : token) {
        if (c < '0' || c > '9')
            return false;
        v = v * 10 + quint64(c - '0');
    }
    if (v > limit)
        return false;
    value = v;
    return true;
}

bool parseDirection(const QByteArray &token, int &direction)
{
    if (token == "M") {
        direction = 0;
        return true;
    }
    if (token == "S") {
        direction = 1;
        return true;
    }
    quint64 v = 0;
    if (!parseNumber(token, 255, v))
        return false;
    direction = int(v);
    return true;
}

// Parses the bytes of one transfer line from tokens[2] on.
bool parseBytes(const QVector<Token> &tokens, Transfer &t, QString &why)
{
    int spanStart = 0; // where the CHK sum starts
    for (int k = 2; k < tokens.size(); ++k) {
        const Token &tok = tokens.at(k);
        if (tok.quoted) {
            for (char c : tok.text) {
                t.bytes.append(c);
                t.modeBits.append(char(0));
            }
        } else if (tok.text == "|") {
            spanStart = int(t.bytes.size());
        } else if (tok.text == "CHK" || tok.text == "CHK*") {
            unsigned sum = 0;
            for (int i = spanStart; i < t.bytes.size(); ++i)
                sum += static_cast<unsigned char>(t.bytes.at(i));
            t.bytes.append(char(sum & 0xFF));
            t.modeBits.append(char(tok.text.endsWith('*') ? 1 : 0));
        } else {
            const QByteArray &s = tok.text;
            const bool marked = s.size() == 3 && s.at(2) == '*';
            if ((s.size() != 2 && !marked) || hexValue(s.at(0)) < 0 || hexValue(s.at(1)) < 0) {
                why = QStringLiteral("bad byte '%1' (two hex digits, * for the mode bit, CHK, | or \"text\")").arg(shown(s));
                return false;
            }
            t.bytes.append(char(hexValue(s.at(0)) * 16 + hexValue(s.at(1))));
            t.modeBits.append(char(marked ? 1 : 0));
        }
        if (t.bytes.size() > ScenarioParser::maxBytesPerLine) {
            why = QStringLiteral("more than %1 bytes on one line").arg(ScenarioParser::maxBytesPerLine);
            return false;
        }
    }
    return true;
}

} // namespace

namespace ScenarioParser {

bool parse(const QByteArray &text, const QString &fileName, Scenario &out, QString &error)
{
    Scenario result;
    result.name = fileName;
    bool loopSeen = false;
    int lineNo = 0;
    qsizetype pos = 0;
    while (pos < text.size()) {
        qsizetype end = text.indexOf('\n', pos);
        if (end < 0)
            end = text.size();
        const QByteArray line = text.mid(pos, end - pos);
        pos = end + 1;
        ++lineNo;

        auto fail = [&](const QString &why) {
            error = QStringLiteral("%1:%2: %3").arg(fileName).arg(lineNo).arg(why);
            return false;
        };

        QVector<Token> tokens;
        QString why;
        if (!tokenize(line, tokens, why))
            return fail(why);
        if (tokens.isEmpty())
            continue;
        if (tokens.size() == 1 && !tokens.first().quoted && tokens.first().text == "loop") {
            if (loopSeen)
                return fail(QStringLiteral("a second loop mark"));
            loopSeen = true;
            result.loopStart = int(result.transfers.size());
            continue;
        }

        Transfer t;
        if (tokens.at(0).quoted || !parseDirection(tokens.at(0).text, t.direction))
            return fail(QStringLiteral("bad direction '%1' (M, S or 0 to 255)").arg(shown(tokens.at(0).text)));
        quint64 gap = 0;
        if (tokens.size() < 2)
            return fail(QStringLiteral("missing tick gap after the direction"));
        if (tokens.at(1).quoted || !parseNumber(tokens.at(1).text, maxGap, gap))
            return fail(QStringLiteral("bad tick gap '%1' (0 to %2)").arg(shown(tokens.at(1).text)).arg(maxGap));
        t.gap = quint32(gap);
        if (!parseBytes(tokens, t, why))
            return fail(why);
        result.transfers.append(t);
    }
    if (result.transfers.isEmpty()) {
        error = QStringLiteral("%1: no transfers").arg(fileName);
        return false;
    }
    if (result.loopStart >= result.transfers.size()) {
        error = QStringLiteral("%1: nothing after the loop mark").arg(fileName);
        return false;
    }
    out = result;
    return true;
}

bool load(const QString &path, Scenario &out, QString &error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    }
    if (file.size() > maxFileSize) {
        error = QStringLiteral("%1: larger than %2 bytes").arg(path).arg(maxFileSize);
        return false;
    }
    const QByteArray text = file.read(maxFileSize + 1);
    if (text.size() > maxFileSize) {
        error = QStringLiteral("%1: larger than %2 bytes").arg(path).arg(maxFileSize);
        return false;
    }
    return parse(text, path, out, error);
}

} // namespace ScenarioParser

QByteArray wireBytes(const Transfer &t, int mode)
{
    if (mode != 0)
        return t.bytes;
    QByteArray out;
    out.reserve(t.bytes.size() * 2);
    for (int i = 0; i < t.bytes.size(); ++i) {
        out.append(t.bytes.at(i));
        out.append(i < t.modeBits.size() ? t.modeBits.at(i) : char(0));
    }
    return out;
}
