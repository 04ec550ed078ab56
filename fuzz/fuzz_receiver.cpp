// The box frame receiver fed arbitrary chunk sequences, in every interpret
// mode, with a firmware folder beside the program so that a firmware request
// in the stream hands the rest of it to the boot-loader exchange.
#include "fuzzsupport.h"

#include <QDir>
#include <QFile>

#include <cstdio>
#include <cstdlib>

namespace {

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    if (f.open(QIODevice::WriteOnly))
        f.write(bytes);
}

// INI_fuzz.bin announces two packets; DAT_fuzz.bin holds 1000 bytes.
void makeFirmwareFolder()
{
    const QString dir = userPath(Place::Firmware);
    QDir().mkpath(dir);
    writeFile(dir + "/INI_fuzz.bin", QByteArray::fromHex("5550000003000002000000003178000000"));
    writeFile(dir + "/DAT_fuzz.bin", QByteArray(1000, '\x5A'));
}

void check(bool ok, const char *what)
{
    if (!ok) {
        std::fprintf(stderr, "receiver: %s\n", what);
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    MainWindow *w = fuzz::window();
    static const bool folderMade = (makeFirmwareFolder(), true);
    Q_UNUSED(folderMade);
    fuzz::Input in(data, size);
    const unsigned char mode = in.byte();
    fuzz::configure(w, mode, in.byte());

    // Each input starts from a fresh receiver; state 3 is the one the
    // receiver itself repairs.
    w->rxBuffer.clear();
    w->rxState = (mode & 0x80) ? 3 : 0;
    w->frameLength = 0;
    w->fwUpgrade->upgradeRunning = false;
    w->fwUpgrade->procedureReset();

    for (const QByteArray &chunk : in.chunks()) {
        w->receive(chunk);
        // A state that is none is only repaired when a byte arrives.
        if (chunk.isEmpty())
            continue;
        check(w->rxState >= 0 && w->rxState <= 2, "state out of range");
        check(w->rxState != 2 || w->frameLength >= BoxFrame::minLength, "waiting for a frame shorter than its header");
        check(w->rxState == 0 || w->rxBuffer.size() >= 2, "header state without its header");
    }
    fuzz::settle(w);
    return 0;
}
