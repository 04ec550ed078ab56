// The boot-loader exchange from every receive state, with arbitrary INI and
// DAT files and the answer timer firing in between.
#include "fuzzsupport.h"

#include "ui_dialogfirmware.h"

#include <QDialog>
#include <QDir>
#include <QFile>
#include <QProgressBar>
#include <QSerialPort>

#include <cstdio>
#include <cstdlib>

namespace {

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    if (f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        f.write(bytes);
}

void check(bool ok, const char *what)
{
    if (!ok) {
        std::fprintf(stderr, "fwupgrade: %s\n", what);
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::ensureApp();
    // Kept for the whole run and never destroyed: the application object
    // is gone before statics would be.
    static const QString folder = [] {
        const QString path = QCoreApplication::applicationDirPath() + "/fuzz-firmware";
        QDir().mkpath(path);
        return path;
    }();
    static QSerialPort *port = new QSerialPort; // never opened: packets stop at the port check
    static Ui::DialogFirmware *form = [] {
        auto *f = new Ui::DialogFirmware;
        f->setupUi(new QDialog);
        return f;
    }();

    fuzz::Input in(data, size);
    const unsigned char start = in.byte();
    const unsigned char flags = in.byte();
    writeFile(folder + "/INI_fuzz.bin", in.take(in.word() % 1024));
    writeFile(folder + "/DAT_fuzz.bin", in.take(in.word() % 4096));

    FWUpgrade up(port, form);
    if (flags & 1)
        up.openFirmware(folder);
    up.upgradeRunning = flags & 2;
    // 5 to 7 are no state; the machine must find its way back from them.
    up.rxState = static_cast<FWUpgrade::RxState>(start % 8);

    while (!in.atEnd()) {
        const unsigned char op = in.byte();
        switch (op % 8) {
        case 5:
            up.responseTimeout();
            break;
        case 6:
            up.procedureReset();
            break;
        case 7:
            up.openFirmware(folder);
            break;
        default: {
            const QByteArray chunk = in.take(op >> 3 ? op >> 3 : in.byte());
            up.upgradeHandling(chunk);
            // A state that is none is only repaired when a byte arrives.
            check(chunk.isEmpty() || (up.rxState >= FWUpgrade::Rx_Token && up.rxState <= FWUpgrade::Rx_Log),
                  "receive state out of range");
            break;
        }
        }
        check(up.sequence <= up.total, "packet number past the announced total");
        check(form->progressBar->value() >= form->progressBar->minimum()
                  && form->progressBar->value() <= form->progressBar->maximum(),
              "progress outside its bar");
    }
    return 0;
}
