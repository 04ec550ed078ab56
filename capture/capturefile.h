#ifndef CAPTUREFILE_H
#define CAPTUREFILE_H

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <functional>

// Reading back what was caught: a Vendscope capture (pcapng, one box frame a
// packet) or a raw dump of the box's serial byte stream, which goes through
// the live receiver's frame cutting and check.
namespace CaptureFile {

enum class Status {
    Ok,
    Unreadable, // missing, unreadable or empty
    Foreign,    // not a Vendscope capture nor a box stream
    Truncated,  // cut or damaged: the frames before the damage were delivered
};

struct Report
{
    Status status = Status::Ok;
    QString message; // for the user; empty when all is well
    qint64 frames = 0;
    qint64 skipped = 0; // bad frames left out, each told to onSkip
    bool raw = false;
};

struct Sink
{
    // A good box frame and its host arrival time (0 in a raw dump, which has none).
    std::function<void(qint64 timeUs, const QByteArray &frame)> onFrame;
    // A bad frame left out, said in a line; optional.
    std::function<void(const QString &why)> onSkip;
};

Report read(const QString &path, const Sink &sink);
Report readData(const QByteArray &data, const Sink &sink);

// True when frame is one whole box frame whose check byte matches.
bool isBoxFrame(const QByteArray &frame);

} // namespace CaptureFile

#endif // CAPTUREFILE_H
