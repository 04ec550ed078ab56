#ifndef FRAMECUTTER_H
#define FRAMECUTTER_H

#include <QByteArray>

// The box frame receiver's cutting, window-free: the live receiver, the
// capture reader and the fuzzers all run this one loop over the three values
// the main window keeps (rxBuffer, rxState, frameLength).
namespace FrameCutter {

enum class Cut {
    Frame,    // *frame holds a frame whose check byte matched
    FccError, // *frame holds the frame that failed its check, already dropped
    Noise,    // one or two bytes of noise dropped: the receiver's call ends here
    Wait,     // the buffer needs more bytes
};

// Runs the receiver's states until one of the outcomes above. The frame is
// taken off the front of buffer before it is returned.
Cut next(QByteArray &buffer, int &state, int &frameLength, QByteArray *frame);

} // namespace FrameCutter

#endif // FRAMECUTTER_H
