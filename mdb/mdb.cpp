#include "mdb/mdb.h"

#include "link/frame.h"
#include "mdb/bill.h"
#include "mdb/card.h"
#include "mdb/coin.h"
#include "mdb/mdbtext.h"
#include "mdb/message.h"

using MdbMessage::checksumOk;

namespace {

template <std::size_t N>
QSet<unsigned char> setOf(const unsigned char (&bytes)[N])
{
    return QSet<unsigned char>(std::begin(bytes), std::end(bytes));
}

// The POLLs of the coin changer, cashless device 1, bill validator and
// cashless device 2.
bool isPoll(int b)
{
    return b == 0x0B || b == 0x12 || b == 0x33 || b == 0x62;
}

const QString fccErr = QStringLiteral("<span style='color: red;'>FCC err </span>");

} // namespace

QString hexStringGenerate(const QByteArray &data)
{
    static const char digits[] = "0123456789ABCDEF";
    QString out;
    out.reserve(data.size() * 3);
    for (int i = 0; i < data.size(); ++i) {
        const auto b = static_cast<unsigned char>(data.at(i));
        if (i)
            out.append(QLatin1Char(' '));
        out.append(QLatin1Char(digits[b >> 4]));
        out.append(QLatin1Char(digits[b & 0x0F]));
    }
    return out;
}

bool splitMessage(const QByteArray &frame, QByteArray *data, QByteArray *modeBits)
{
    MdbMessage::InPlace message;
    if (!message.read(frame))
        return false;
    const int n = message.size();
    *data = QByteArray(n, Qt::Uninitialized);
    *modeBits = QByteArray(n, '\0');
    for (int i = 0; i < n; ++i) {
        (*data)[i] = char(message.data(i));
        (*modeBits)[i] = message.modeByte(i);
    }
    return true;
}

MDB::MDB(MainWindow *mainWindow)
    : QObject(nullptr),
      mainWindow(mainWindow),
      coinCommands(setOf(MdbMessage::coinCommands)),
      coinExpansionSubcommands(setOf(MdbMessage::coinExpansionSubcommands)),
      billCommands(setOf(MdbMessage::billCommands)),
      cashless1Commands(setOf(MdbMessage::cashless1Commands)),
      cashless2Commands(setOf(MdbMessage::cashless2Commands)),
      color(QStringLiteral("black"))
{
}

bool MDB::hidden(const QByteArray &data, const Filters &filters, int lastCmd)
{
    const int n = int(data.size());
    const int first = n > 0 ? static_cast<unsigned char>(data.at(0)) : -1;
    if (!filters.poll && ((n == 2 && isPoll(first)) || (n == 1 && first == 0x00 && isPoll(lastCmd))))
        return true;
    if (!filters.bill && n == 2 && first == 0x30)
        return true;
    if (!filters.coin && n == 2 && first == 0x08)
        return true;
    if (!filters.card && n == 2 && (first == 0x10 || first == 0x60))
        return true;
    return false;
}

QString MDB::renderLine(const QByteArray &frame, const Filters &filters, bool interpretOn,
                        quint32 &lastTickEnd, int &lastCmd)
{
    QByteArray data;
    QByteArray modeBits;
    if (!splitMessage(frame, &data, &modeBits))
        return QString();
    const int n = int(data.size());
    const quint32 startTick = be32(frame, BoxFrame::startTickOffset);
    const quint32 endTick = be32(frame, BoxFrame::endTickOffset);

    // The tick counter wraps: the gap is taken modulo 2^32, then signed.
    gap = static_cast<qint32>(startTick - lastTickEnd);

    QString line;
    if (!hidden(data, filters, lastCmd)) {
        const QString direction = frame.at(BoxFrame::directionOffset) == 0 ? QStringLiteral("M->")
                                                                           : QStringLiteral("S->");
        const QString hex = hexStringGenerate(data);
        const QString text = explain(modeBits, data, interpretOn);
        // One arg call per placeholder, lowest first: a "%n" inside decoded
        // text takes a later value, and saved logs rely on that rendering.
        if (!text.isEmpty())
            line = QStringLiteral("<span style='color: %4;'>%1 : %6 %2<br>%5%3</span>")
                       .arg(gapText(gap))
                       .arg(hex)
                       .arg(text)
                       .arg(color)
                       .arg(MdbText::fieldIndent)
                       .arg(direction);
        else
            line = QStringLiteral("<span style='color: %4;'>%1 : %3 %2</span>")
                       .arg(gapText(gap))
                       .arg(hex)
                       .arg(direction)
                       .arg(color);
    }

    // Hidden frames move these on too, so the next gap counts from them.
    lastTickEnd = endTick;
    lastCmd = n > 0 ? static_cast<signed char>(data.at(0)) : 0;
    return line;
}

QString MDB::explain(const QByteArray &modeBits, const QByteArray &data, bool interpretOn)
{
    const int n = int(qMin(data.size(), modeBits.size()));
    const auto *d = reinterpret_cast<const unsigned char *>(data.constData());
    const auto modeBit = [&](int i) { return modeBits.at(i) == 1; };
    const auto lateCheck = [this] {
        if (gap > 5)
            color = QStringLiteral("red");
    };

    QString text;
    switch (MdbMessage::classify(n, n > 0 ? d[0] : 0, n > 0 && modeBit(0), n > 0 && modeBit(n - 1))) {
    case MdbMessage::Kind::Empty:
        // Nothing to classify, no state changes.
        return interpretOn ? QStringLiteral("Length error") : QString();
    case MdbMessage::Kind::Command: {
        const unsigned char c = d[0];
        const char *deviceColor = coinCommands.contains(c)       ? "green"
                                  : billCommands.contains(c)      ? "blue"
                                  : cashless1Commands.contains(c) ? "brown"
                                  : cashless2Commands.contains(c) ? "magenta"
                                                                  : nullptr;
        if (deviceColor) {
            lastCommand = c;
            color = QLatin1String(deviceColor);
            if (!checksumOk(d, n))
                text += fccErr;
            text += commandText(d, n);
        } else if (n != 1) {
            lastCommand = 0;
            color = QStringLiteral("red");
            text += QStringLiteral("unknow command 0x%1").arg(MdbText::hex2(c));
        } else {
            return QString();
        }
        break;
    }
    case MdbMessage::Kind::PeripheralAck:
        text += QStringLiteral("Peripheral ACK");
        lateCheck();
        break;
    case MdbMessage::Kind::Reply:
        if (!checksumOk(d, n))
            text += fccErr;
        text += replyText(data.left(n));
        lateCheck();
        break;
    case MdbMessage::Kind::VmcAck:
        text += QStringLiteral("VMC ACK");
        lateCheck();
        break;
    case MdbMessage::Kind::VmcNak:
        text += QStringLiteral("VMC NAK");
        lateCheck();
        break;
    case MdbMessage::Kind::VmcRet:
        text += QStringLiteral("VMC RET");
        lateCheck();
        break;
    case MdbMessage::Kind::VmcOther:
        color = QStringLiteral("red");
        text += QStringLiteral("unknow data 0x%1").arg(MdbText::hex2(d[0]));
        lateCheck();
        break;
    }
    return interpretOn ? text : QString();
}

// Text of a recognised command byte d[0]; VMC
// command decoders get the bytes between command and checksum.
QString MDB::commandText(const unsigned char *d, int n)
{
    const unsigned char *args = d + 1;
    const int count = n - 2;
    switch (d[0]) {
    case 0x08: case 0x30: case 0x10: case 0x60:
        return QStringLiteral("RESET");
    case 0x09: case 0x31:
        return QStringLiteral("SETUP");
    case 0x0A:
        return QStringLiteral("TUBE STATUS");
    case 0x0B: case 0x33: case 0x12:
        return QStringLiteral("POLL");
    case 0x0C:
        return Coin::coinType(d, n);
    case 0x0D:
        return QStringLiteral("DISPENSE");
    case 0x0F:
        // Without a sub-command byte nothing is decoded after it.
        lastSubcommand = n > 1 ? d[1] : 0xFF;
        if (n > 1 && !coinExpansionSubcommands.contains(d[1]))
            color = QStringLiteral("red");
        return Coin::expansion(d, n);
    case 0x32:
        return Bill::security(args, count);
    case 0x34:
        return Bill::billType(args, count);
    case 0x35:
        return Bill::escrow(args, count);
    case 0x11:
        return Card::setup(args, count);
    case 0x13:
        return Card::vend(args, count);
    case 0x17:
        return Card::expansion(args, count);
    default: // 0x36, 0x37, 0x14, 0x15, 0x61 to 0x65, 0x67
        return QString();
    }
}

// Replies carry no address: they are decoded by the last recognised command.
// Reply decoders get the reply without its checksum, the coin changer's the
// whole data array.
QString MDB::replyText(const QByteArray &data)
{
    const int n = int(data.size());
    const auto *d = reinterpret_cast<const unsigned char *>(data.constData());
    switch (lastCommand) {
    case 0x09:
        return Coin::setupReply(d, n);
    case 0x0A:
        return Coin::tubeStatus(d, n);
    case 0x0B:
        return n == 2 && d[0] == 0x0B ? QStringLiteral("JUST RESET") : QString();
    case 0x0F:
        if (lastSubcommand == 0x00)
            return Coin::identification(d, n);
        if (lastSubcommand == 0x05)
            return Coin::changerDiagnosticStatus(data);
        return QString();
    case 0x12:
        return Card::poll(d, n - 1);
    case 0x31:
        return Bill::setup(d, n - 1);
    case 0x33:
        return Bill::poll(d, n - 1);
    case 0x36:
        return Bill::stacker(d, n - 1);
    default:
        return QString();
    }
}
