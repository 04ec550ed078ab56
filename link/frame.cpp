#include "link/frame.h"

namespace BoxFrame {

unsigned char xorOf(const QByteArray &data, int from, int to)
{
    unsigned char x = 0;
    for (int i = from; i <= to; ++i)
        x ^= static_cast<unsigned char>(data.at(i));
    return x;
}

QByteArray build(unsigned char kind, const QByteArray &body)
{
    const int n = minLength + int(body.size());
    QByteArray frame;
    frame.reserve(n);
    frame.append(char(0xA5));
    frame.append(char(0x5A));
    frame.append(char((n >> 8) & 0xFF));
    frame.append(char(n & 0xFF));
    frame.append(char(kind));
    frame.append(body);
    frame.append(char(xorOf(frame, 2, int(frame.size()) - 1)));
    frame.append(char(0x0D));
    frame.append(char(0x0A));
    return frame;
}

} // namespace BoxFrame

QString gapText(qint64 gap)
{
    return QStringLiteral("%1").arg(gap, 4, 10, QLatin1Char('0'));
}
