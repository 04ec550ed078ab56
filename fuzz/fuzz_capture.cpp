// The capture reader on hostile files: pcapng with lying blocks, foreign
// links and odd byte orders, or a raw serial dump. The last byte picks the
// line options, so the saved files serve as seeds as they are; every frame delivered is a whole, checked box frame, and its
// line and plain text are built as the decoder builds them.
#include "fuzzsupport.h"

#include "capture/capturefile.h"
#include "capture/pcapng.h"
#include "protocols/linebuilder.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::ensureApp();
    if (size == 0)
        return 0;
    const uint8_t flags = data[size - 1];
    LineOptions options;
    options.interpret = flags & 1;
    options.mdb.poll = flags & 2;
    options.iebus.remote = flags & 4;
    LineBuilder builder(options);
    qint64 frames = 0;
    CaptureFile::Sink sink;
    sink.onFrame = [&](qint64, const QByteArray &frame) {
        if (!CaptureFile::isBoxFrame(frame)) {
            std::fprintf(stderr, "capture: a frame that fails its check was delivered\n");
            std::abort();
        }
        ++frames;
        plainText(builder.line(frame));
    };
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    const CaptureFile::Report report = CaptureFile::readData(bytes, sink);
    if (report.frames != frames || (report.status != CaptureFile::Status::Ok && report.message.isEmpty())) {
        std::fprintf(stderr, "capture: report disagrees with what was delivered\n");
        std::abort();
    }
    return 0;
}
