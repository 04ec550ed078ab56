#include "mdb/message.h"

#include "link/frame.h"

#include <algorithm>
#include <iterator>

namespace MdbMessage {

namespace {

template <std::size_t N>
bool holds(const unsigned char (&list)[N], unsigned char c)
{
    return std::find(std::begin(list), std::end(list), c) != std::end(list);
}

} // namespace

bool knownCommand(unsigned char c)
{
    return holds(coinCommands, c) || holds(billCommands, c) || holds(cashless1Commands, c)
        || holds(cashless2Commands, c);
}

Kind classify(int n, unsigned char first, bool firstMarked, bool lastMarked)
{
    if (n <= 0)
        return Kind::Empty;
    if (firstMarked)
        return n == 1 && first == 0x00 ? Kind::PeripheralAck : Kind::Command;
    if (lastMarked)
        return Kind::Reply;
    if (n == 1 && first == 0x00)
        return Kind::VmcAck;
    if (n == 1 && first == 0xFF)
        return Kind::VmcNak;
    if (n == 1 && first == 0xAA)
        return Kind::VmcRet;
    return Kind::VmcOther;
}

bool checksumOk(const unsigned char *d, int n, int stride)
{
    if (n < 2)
        return false;
    unsigned char sum = 0;
    for (int i = 0; i < n - 1; ++i)
        sum = static_cast<unsigned char>(sum + d[i * stride]);
    return sum == d[(n - 1) * stride];
}

bool InPlace::read(const QByteArray &frame)
{
    const int room = int(frame.size()) - BoxFrame::busDataOffset - BoxFrame::trailerSize;
    if (room < 0)
        return false;
    payload = reinterpret_cast<const unsigned char *>(frame.constData()) + BoxFrame::busDataOffset;
    payloadSize = room;
    return true;
}

Kind InPlace::kind() const
{
    const int n = size();
    return n == 0 ? Kind::Empty : classify(n, data(0), marked(0), marked(n - 1));
}

} // namespace MdbMessage
