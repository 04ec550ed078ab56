// The VSI, IEBus, VTS and plain serial renderers, and the record decoders
// of VSI and IEBus, on frames built from the input and on raw bytes. Half
// the frames go through the renderers' line builders alone: the log view
// costs far more than the parsing.
#include "fuzzsupport.h"

#include "protocols/bustransfer.h"
#include "protocols/iebus.h"
#include "protocols/rs232.h"
#include "protocols/vsi.h"
#include "protocols/vts.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    MainWindow *w = fuzz::window();
    fuzz::Input in(data, size);
    const unsigned char flags = in.byte();
    fuzz::configure(w, 0, flags);
    Iebus::Filters filters;
    filters.remote = flags & 0x20;
    filters.button = flags & 0x40;
    filters.amount = flags & 0x80;
    QString color = QStringLiteral("black");

    quint32 tick = quint32(in.word()) << 8;
    while (!in.atEnd()) {
        const unsigned char op = in.byte();
        const unsigned char direction = in.byte();
        const QByteArray bytes = in.take(in.byte());
        const quint32 start = tick + (op >> 4);
        tick = start + quint32(bytes.size());
        const QByteArray frame = (op & 0x08) ? bytes : fuzz::busFrame(start, tick, direction, 0, bytes);
        switch (op & 0x07) {
        case 0:
            w->vsi->packageProcess(frame);
            break;
        case 1:
            w->iebus->packageProcess(frame);
            break;
        case 2:
            w->vts->packageProcess(frame);
            break;
        case 3:
            w->rs232->packageProcess(frame);
            break;
        case 4:
            VSI::interpretor(bytes);
            w->iebus->interpretor(bytes);
            break;
        case 5:
            Iebus::line(frame, start - direction, filters, flags & 1, &color);
            break;
        case 6:
            VTS::line(frame, start - direction, direction & 1);
            break;
        default:
            plainLine(frame, start - direction);
            break;
        }
    }
    fuzz::settle(w);
    return 0;
}
