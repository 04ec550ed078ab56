// vendscope-boxsim: plays the interface box on a pseudo-terminal so that
// Vendscope can be tried, demonstrated and tested without the hardware.
#include "box.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QSocketNotifier>
#include <QTimer>

#include <csignal>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int signalPipe[2] = {-1, -1};

void onSignal(int)
{
    const char c = 1;
    [[maybe_unused]] const ssize_t n = ::write(signalPipe[0], &c, 1);
}

// SIGTERM and friends end the event loop normally, so the link is removed.
void quitOnSignals(QCoreApplication &app)
{
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, signalPipe) != 0)
        return;
    auto *notifier = new QSocketNotifier(signalPipe[1], QSocketNotifier::Read, &app);
    QObject::connect(notifier, &QSocketNotifier::activated, &app, [] { QCoreApplication::quit(); });
    struct sigaction sa = {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    for (int s : {SIGTERM, SIGINT, SIGHUP})
        sigaction(s, &sa, nullptr);
}

int fail(const QString &message)
{
    fprintf(stderr, "vendscope-boxsim: %s\n", qPrintable(message));
    return 2;
}

bool readInt(const QCommandLineParser &p, const QString &name, qint64 low, qint64 high, qint64 &value, QString &error)
{
    if (!p.isSet(name))
        return true;
    bool ok = false;
    const qint64 v = p.value(name).toLongLong(&ok);
    if (!ok || v < low || v > high) {
        error = QStringLiteral("--%1 wants a number from %2 to %3, not '%4'").arg(name).arg(low).arg(high).arg(p.value(name));
        return false;
    }
    value = v;
    return true;
}

// The port and, since a simulated box reports a made-up version, an update
// check that can reach nothing but this machine.
bool writeDemoSettings(const QString &file, const QString &port, QString &error)
{
    QSettings ini(file, QSettings::IniFormat);
    ini.setValue("serial/portName", port);
    ini.setValue("Update", false);
    ini.setValue("updateServer", "http://127.0.0.1:9");
    ini.sync();
    if (ini.status() != QSettings::NoError) {
        error = QStringLiteral("--demo-settings %1: cannot write it").arg(file);
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vendscope-boxsim"));

    QCommandLineParser p;
    p.setApplicationDescription(QStringLiteral(
        "Plays a Vendscope interface box on a pseudo-terminal. Prints the device path on the first line of "
        "standard output; open that port in Vendscope and click Connect."));
    p.addHelpOption();
    p.addOptions({
        {"link", "Also make a symbolic link to the device at <path>.", "path"},
        {"version", "Firmware version the box reports (default XYZ_1.0.0).", "text"},
        {"request-firmware", "Ask the program for new firmware after the first modeSet."},
        {"rate", "Bus transfers per second; 0 = as fast as the port takes them (default 10).", "n"},
        {"silence-after", "Stop sending after <n> transfers.", "n"},
        {"noise", "Mix junk bytes, frames with a bad check byte and cut-short frames into the stream."},
        {"seed", "Seed of the noise (default 1).", "n"},
        {"status-ms", "Interval of the status frames that the program answers with a heartbeat (default 1000).", "ms"},
        {"scenario", "Play this scenario file in every mode instead of the shipped ones.", "file"},
        {"check", "Only read the scenarios (the given one or all shipped ones) and report errors."},
        {"exit-after", "Quit after <s> seconds.", "s"},
        {"verbose", "Report the commands received on standard error."},
        {"demo-settings", "Select this box's port in the Vendscope settings file <ini>, with the update check off.", "ini"},
        {"image-out", "Boot loader: write the received firmware image to <file>.", "file"},
        {"boot-silent-at", "Boot loader: stop answering at packet <n>.", "n"},
        {"boot-reject-at", "Boot loader: reject packet <n>.", "n"},
        {"boot-late-ms", "Boot loader: answer <ms> late.", "ms"},
        {"boot-log", "Boot loader: send log text frames."},
    });
    p.process(app);
    if (!p.positionalArguments().isEmpty())
        return fail(QStringLiteral("unexpected argument '%1' (see --help)").arg(p.positionalArguments().first()));

    Box::Options opt;
    QString error;
    qint64 rate = opt.rate, silence = -1, seed = opt.seed, statusMs = opt.statusMs, exitAfter = 0;
    qint64 silentAt = -1, rejectAt = -1, lateMs = 0;
    if (!readInt(p, "rate", 0, 100000, rate, error) || !readInt(p, "silence-after", 0, 1LL << 40, silence, error)
        || !readInt(p, "seed", 0, 0xFFFFFFFFLL, seed, error) || !readInt(p, "status-ms", 10, 3600000, statusMs, error)
        || !readInt(p, "exit-after", 1, 86400 * 365, exitAfter, error)
        || !readInt(p, "boot-silent-at", 0, 1 << 30, silentAt, error)
        || !readInt(p, "boot-reject-at", 0, 1 << 30, rejectAt, error)
        || !readInt(p, "boot-late-ms", 0, 600000, lateMs, error))
        return fail(error);
    opt.rate = int(rate);
    opt.silenceAfter = silence;
    opt.seed = quint32(seed);
    opt.statusMs = int(statusMs);
    opt.bootSilentAt = int(silentAt);
    opt.bootRejectAt = int(rejectAt);
    opt.bootLateMs = int(lateMs);
    opt.bootLog = p.isSet("boot-log");
    opt.imageOut = p.value("image-out");
    opt.requestFirmware = p.isSet("request-firmware");
    opt.noise = p.isSet("noise");
    opt.verbose = p.isSet("verbose");
    opt.scenarioPath = p.value("scenario");
    if (p.isSet("version")) {
        opt.version = p.value("version");
        // The version frame counts its characters in a signed byte.
        if (opt.version.size() > 127 || opt.version.toLatin1().size() != opt.version.size()
            || QString::fromLatin1(opt.version.toLatin1()) != opt.version)
            return fail(QStringLiteral("--version wants at most 127 Latin-1 characters"));
    }

    Box box(opt);
    if (!box.loadScenarios(error))
        return fail(error);
    if (p.isSet("check"))
        return 0;
    if (!box.open(error))
        return fail(error);

    const QString link = p.value("link");
    if (!link.isEmpty()) {
        const QFileInfo info(link);
        if (info.isSymLink())
            QFile::remove(link);
        else if (info.exists())
            return fail(QStringLiteral("--link %1: exists and is not a symbolic link").arg(link));
        if (!QFile::link(box.devicePath(), link))
            return fail(QStringLiteral("--link %1: cannot create the link").arg(link));
    }

    if (p.isSet("demo-settings") && !writeDemoSettings(p.value("demo-settings"), link.isEmpty() ? box.devicePath() : link, error)) {
        if (!link.isEmpty())
            QFile::remove(link);
        return fail(error);
    }

    printf("%s\n", qPrintable(box.devicePath()));
    fflush(stdout);

    quitOnSignals(app);
    if (exitAfter > 0)
        QTimer::singleShot(exitAfter * 1000, &app, &QCoreApplication::quit);
    const int rc = QCoreApplication::exec();

    if (!link.isEmpty() && QFileInfo(link).symLinkTarget() == box.devicePath())
        QFile::remove(link);
    return rc;
}
