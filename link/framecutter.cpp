#include "link/framecutter.h"

#include "link/frame.h"

#include <QDebug>

namespace FrameCutter {

Cut next(QByteArray &buffer, int &state, int &frameLength, QByteArray *frame)
{
    while (!buffer.isEmpty()) {
        const auto *b = reinterpret_cast<const unsigned char *>(buffer.constData());
        switch (state) {
        case 0:
            // Noise costs one call per dropped byte or pair; the rest waits.
            if (b[0] != 0xA5) {
                buffer.remove(0, 1);
                return Cut::Noise;
            }
            if (buffer.size() < 2)
                return Cut::Wait;
            if (b[1] != 0x5A) {
                buffer.remove(0, 2);
                return Cut::Noise;
            }
            state = 1;
            break;
        case 1:
            if (buffer.size() < 4)
                return Cut::Wait;
            frameLength = be16(b + 2);
            if (frameLength <= 7) {
                buffer.remove(0, 4);
                state = 0;
            } else {
                state = 2;
            }
            break;
        case 2: {
            if (buffer.size() < frameLength)
                return Cut::Wait;
            const bool ok = BoxFrame::xorOf(buffer, 2, frameLength - 4) == b[frameLength - 3];
            *frame = buffer.left(frameLength);
            buffer.remove(0, frameLength);
            state = 0;
            return ok ? Cut::Frame : Cut::FccError;
        }
        default:
            state = 0;
            qDebug() << "rxData default";
            break;
        }
    }
    return Cut::Wait;
}

} // namespace FrameCutter
