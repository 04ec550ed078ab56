#include "box.h"

#include "link/frame.h"

#include "bootloader.h"
#include "rawpty.h"

#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

// The status report is a kind the program does not handle itself, so every
// one of them is answered with a heartbeat.
constexpr unsigned char kindStatus = 0x07;

// While nobody reads the port, the player stops at this much unsent output,
// and status frames beyond twice as much are dropped.
constexpr int outLimit = 64 * 1024;
// Bytes the flat-out player keeps queued ahead of the line.
constexpr int flatOutAhead = 4096;
// A command frame is at most this long; anything larger is line noise.
constexpr int rxLimit = 128 * 1024;

void appendBe32(QByteArray &to, quint32 v)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        to.append(char((v >> shift) & 0xFF));
}

} // namespace

Box::Box(const Options &options, QObject *parent)
    : QObject(parent), opt(options), rng(options.seed)
{
    playTimer = new QTimer(this);
    playTimer->setTimerType(Qt::PreciseTimer);
    connect(playTimer, &QTimer::timeout, this, &Box::playOne);
    statusTimer = new QTimer(this);
    statusTimer->setInterval(qMax(10, opt.statusMs));
    connect(statusTimer, &QTimer::timeout, this, &Box::sendStatus);
}

Box::~Box()
{
    if (master >= 0)
        ::close(master);
    if (slave >= 0)
        ::close(slave);
}

QString Box::builtInScenario(int mode)
{
    static const char *const names[modeCount] = {"mdb", "vsi", "vts", "232", "iss", "debug", "485", "can", "ttl"};
    if (mode < 0 || mode >= modeCount)
        return QString();
    return QStringLiteral(":/scenarios/%1.txt").arg(QLatin1String(names[mode]));
}

bool Box::loadScenarios(QString &error)
{
    scenarios.clear();
    if (!opt.scenarioPath.isEmpty()) {
        Scenario s;
        if (!ScenarioParser::load(opt.scenarioPath, s, error))
            return false;
        scenarios.append(s);
        return true;
    }
    for (int m = 0; m < modeCount; ++m) {
        Scenario s;
        if (!ScenarioParser::load(builtInScenario(m), s, error))
            return false;
        scenarios.append(s);
    }
    return true;
}

bool Box::open(QString &error)
{
    if (!openRawPty(master, slave, slavePath)) {
        error = QStringLiteral("openpty failed: %1").arg(QString::fromLocal8Bit(strerror(errno)));
        return false;
    }
    // Our own slave handle stays open so that the master never sees a hang-up
    // while the program closes and reopens the port.
    fcntl(master, F_SETFD, FD_CLOEXEC);
    fcntl(slave, F_SETFD, FD_CLOEXEC);

    readNotifier = new QSocketNotifier(master, QSocketNotifier::Read, this);
    connect(readNotifier, &QSocketNotifier::activated, this, &Box::readReady);
    writeNotifier = new QSocketNotifier(master, QSocketNotifier::Write, this);
    writeNotifier->setEnabled(false);
    connect(writeNotifier, &QSocketNotifier::activated, this, &Box::writeReady);
    return true;
}

void Box::note(const QString &text) const
{
    if (!opt.verbose)
        return;
    fprintf(stderr, "boxsim: %s\n", qPrintable(text));
    fflush(stderr);
}

void Box::readReady()
{
    char buf[4096];
    const ssize_t n = ::read(master, buf, sizeof buf);
    if (n <= 0)
        return;
    if (booting) {
        if (bootLoader)
            bootLoader->feed(QByteArray(buf, int(n)));
        return;
    }
    rx.append(buf, n);
    if (rx.size() > rxLimit)
        rx = rx.right(4);

    for (;;) {
        const qsizetype at = rx.indexOf("\xA5\x5A");
        if (at < 0) {
            // Keep a lone A5 at the end: its 5A may be on the way.
            rx = rx.endsWith('\xA5') ? QByteArray("\xA5", 1) : QByteArray();
            return;
        }
        rx.remove(0, at);
        if (rx.size() < 4)
            return;
        const int length = be16(reinterpret_cast<const unsigned char *>(rx.constData()) + 2);
        if (length < BoxFrame::minLength) {
            rx.remove(0, 2);
            continue;
        }
        if (rx.size() < length)
            return;
        if (BoxFrame::xorOf(rx, 2, length - 4) != static_cast<unsigned char>(rx.at(length - 3))) {
            note(QStringLiteral("command with a bad check byte dropped"));
            rx.remove(0, 2); // look for the next header inside it
            continue;
        }
        const QByteArray frame = rx.left(length);
        rx.remove(0, length);
        handleFrame(frame);
        if (booting) {
            // Whatever followed boot is already the boot loader's.
            const QByteArray rest = rx;
            rx.clear();
            if (bootLoader && !rest.isEmpty())
                bootLoader->feed(rest);
            return;
        }
    }
}

void Box::handleFrame(const QByteArray &frame)
{
    const auto kind = static_cast<unsigned char>(frame.at(4));
    switch (kind) {
    case BoxFrame::KindModeSet:
        if (frame.size() < 10) {
            note(QStringLiteral("modeSet without mode and rate ignored"));
            return;
        }
        modeSet(static_cast<signed char>(frame.at(5)), static_cast<signed char>(frame.at(6)));
        return;
    case BoxFrame::KindHeart:
        note(QStringLiteral("heart"));
        return;
    case BoxFrame::KindBoot:
        note(QStringLiteral("boot"));
        enterBootLoader();
        return;
    default:
        note(QStringLiteral("command kind %1 ignored").arg(kind, 2, 16, QLatin1Char('0')));
        return;
    }
}

void Box::modeSet(int newMode, int newRate)
{
    note(QStringLiteral("modeSet %1 %2").arg(newMode).arg(newRate));
    mode = newMode;
    rate = newRate;
    if (quiet)
        return;
    if (opt.scenarioPath.isEmpty())
        current = (mode >= 0 && mode < scenarios.size()) ? &scenarios.at(mode) : nullptr;
    else
        current = &scenarios.first();
    next = 0;

    if (!versionSent) {
        versionSent = true;
        const QByteArray text = opt.version.toLatin1();
        queue(BoxFrame::build(BoxFrame::KindVersion, char(text.size()) + text));
        if (opt.requestFirmware)
            queue(BoxFrame::build(BoxFrame::KindFirmwareRequest));
    }
    statusTimer->start();
    if (!current) {
        playTimer->stop();
        return;
    }
    if (opt.rate > 0) {
        playTimer->start(qMax(1, 1000 / opt.rate));
    } else {
        playTimer->stop();
        fillFlatOut();
    }
}

quint32 Box::transferTicks(int busBytes) const
{
    // Ticks are milliseconds of bus time.
    static const int serialRates[] = {4800, 9600, 19200, 38400, 57600, 115200};
    static const int canRates[] = {125000, 250000, 500000, 1000000};
    if (busBytes <= 0)
        return 0;
    qint64 bits = 0;
    qint64 bps = 9600;
    if (mode == 0) {
        bits = 11LL * busBytes; // start, eight data bits, mode bit, stop
    } else if (mode == 7) {
        bits = 47 + 8LL * busBytes;
        if (rate >= 0 && rate < 4)
            bps = canRates[rate];
    } else {
        bits = 10LL * busBytes;
        if ((mode == 3 || mode == 6 || mode == 8) && rate >= 0 && rate < 6)
            bps = serialRates[rate];
    }
    return quint32((bits * 1000 + bps - 1) / bps);
}

void Box::playOne()
{
    if (!current || quiet || booting)
        return;
    if (out.size() > outLimit)
        return; // nobody is reading: hold the scenario rather than pile up frames
    const Transfer &t = current->transfers.at(next);
    next = next + 1 < current->transfers.size() ? next + 1 : current->loopStart;

    const QByteArray bus = wireBytes(t, mode);
    const quint32 start = tick + t.gap;
    const quint32 end = start + transferTicks(int(t.bytes.size()));
    tick = end;

    QByteArray body;
    body.reserve(10 + bus.size());
    appendBe32(body, start);
    appendBe32(body, end);
    body.append(char(t.direction));
    body.append(char(mode));
    body.append(bus);
    queue(BoxFrame::build(BoxFrame::KindBusData, body));
    ++transfersSent;

    if (opt.noise && rng.bounded(6) == 0)
        noiseBurst();
    goQuietIfDone();
}

void Box::fillFlatOut()
{
    while (opt.rate == 0 && current && !quiet && !booting && out.size() < flatOutAhead)
        playOne();
}

void Box::goQuietIfDone()
{
    if (opt.silenceAfter < 0 || transfersSent < opt.silenceAfter)
        return;
    quiet = true;
    playTimer->stop();
    statusTimer->stop();
    note(QStringLiteral("silent after %1 transfers").arg(transfersSent));
}

void Box::sendStatus()
{
    if (quiet || booting)
        return;
    QByteArray body;
    body.append(char(mode));
    body.append(char(rate));
    appendBe32(body, quint32(transfersSent));
    queue(BoxFrame::build(kindStatus, body));
}

void Box::noiseBurst()
{
    switch (rng.bounded(4)) {
    case 0: {
        // Junk between frames; never A5, so it cannot pose as a header.
        const int n = 1 + int(rng.bounded(3));
        QByteArray junk;
        for (int i = 0; i < n; ++i) {
            char c = char(rng.bounded(256));
            junk.append(c == '\xA5' ? '\x00' : c);
        }
        queue(junk);
        break;
    }
    case 1: {
        QByteArray bad = BoxFrame::build(kindStatus, "noise");
        bad[bad.size() - 3] = char(bad.at(bad.size() - 3) ^ 0x5A);
        queue(bad);
        break;
    }
    case 2:
        queue(QByteArray("\xA5\x5A\x00\x05", 4)); // a length no frame can have
        break;
    default:
        queue(BoxFrame::build(BoxFrame::KindBusData, QByteArray("\x00\x01", 2))); // bus data cut short
        break;
    }
}

void Box::queue(const QByteArray &bytes)
{
    if (out.size() + bytes.size() > outLimit * 2)
        return;
    out.append(bytes);
    flush();
}

void Box::flush()
{
    while (!out.isEmpty()) {
        const ssize_t n = ::write(master, out.constData(), size_t(out.size()));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            break; // EAGAIN: the line is full, wait until it drains
        }
        out.remove(0, n);
    }
    if (writeNotifier)
        writeNotifier->setEnabled(!out.isEmpty());
}

void Box::writeReady()
{
    flush();
    fillFlatOut();
}

void Box::stopPlaying()
{
    playTimer->stop();
    statusTimer->stop();
    current = nullptr;
}

void Box::enterBootLoader()
{
    stopPlaying();
    out.clear(); // the box stops reporting the moment it reboots
    if (writeNotifier)
        writeNotifier->setEnabled(false);
    BootLoader::Options o;
    o.imageOut = opt.imageOut;
    o.silentAt = opt.bootSilentAt;
    o.rejectAt = opt.bootRejectAt;
    o.lateMs = opt.bootLateMs;
    o.sendLog = opt.bootLog;
    booting = true;
    bootLoader = new BootLoader(o, this);
    connect(bootLoader, &BootLoader::send, this, &Box::queue);
    connect(bootLoader, &BootLoader::finished, this, &Box::leaveBootLoader);
    bootLoader->start();
}

void Box::leaveBootLoader(bool ok)
{
    note(QStringLiteral("boot loader finished: %1").arg(ok ? "ok" : "failed"));
    booting = false;
    rx.clear();
    if (bootLoader) {
        bootLoader->disconnect(this);
        bootLoader->deleteLater();
        bootLoader = nullptr;
    }
    // Back to being a box: the next modeSet starts the bus reports again.
}
