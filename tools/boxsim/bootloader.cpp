#include "bootloader.h"

#include <QDebug>
#include <QFile>
#include <QTimer>

namespace {
constexpr int dataSize = 768;            // image bytes in a full DAT packet
constexpr int fullPacket = 3 + dataSize + 2;
constexpr int iniHeader = 12;
constexpr int maxIniPacket = 3 + 4096 + 2;

quint16 be16(const QByteArray &b, int at)
{
    return quint16((quint8(b.at(at)) << 8) | quint8(b.at(at + 1)));
}

quint32 be32(const QByteArray &b, int at)
{
    return (quint32(be16(b, at)) << 16) | be16(b, at + 2);
}

QByteArray numbered(char verdict, quint16 sequence)
{
    QByteArray a;
    a.append(verdict);
    a.append(char(sequence >> 8));
    a.append(char(sequence & 0xFF));
    return a;
}
} // namespace

BootLoader::BootLoader(const Options &options, QObject *parent)
    : QObject(parent), options(options), versionBytes(options.version.toUtf8().left(126)), giveUp(new QTimer(this))
{
    giveUp->setSingleShot(true);
    connect(giveUp, &QTimer::timeout, this, [this] {
        if (step == Step::Log) {
            finish(result);  // the program did not answer the log; leave all the same
            return;
        }
        if (step != Step::Silent)
            qDebug() << "boot loader: nothing from the program, giving up";
        finish(false);
    });
}

quint16 BootLoader::crc16(const QByteArray &bytes)
{
    quint16 crc = 0;
    for (const char c : bytes) {
        crc ^= quint16(quint8(c) << 8);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x8000) ? quint16((crc << 1) ^ 0x1021) : quint16(crc << 1);
    }
    return crc;
}

QByteArray BootLoader::textFrame(const QByteArray &text)
{
    static const char digits[] = "0123456789ABCDEF";
    const QByteArray t = text.left(126);  // the length byte counts to 255
    QByteArray frame("~$");
    frame.append(char(3 + 2 * t.size()));
    for (int k = 0; k < t.size(); ++k) {
        const quint8 x = quint8(t.at(k)) ^ quint8(k);
        frame.append(digits[x & 0x0F]);
        frame.append(digits[x >> 4]);
    }
    return frame;
}

void BootLoader::start()
{
    rx.clear();
    image.clear();
    expected = 0;
    total = 0;
    imageSize = 0;
    result = false;
    step = Step::Rebooting;
    giveUp->stop();
    QTimer::singleShot(rebootMs, this, [this] {
        if (step != Step::Rebooting)
            return;
        step = Step::TokenAnswer;
        giveUp->start(idleGiveUpMs);
        emit send(QByteArray(1, char(0x16)) + textFrame(versionBytes));
    });
}

void BootLoader::feed(const QByteArray &bytes)
{
    switch (step) {
    case Step::Idle:
    case Step::Rebooting:  // nobody listens while the box restarts
    case Step::Silent:
    case Step::Leaving:
    case Step::Done:
        return;
    case Step::Log:
        break;  // its own short wait runs on
    default:
        giveUp->start(idleGiveUpMs);
        break;
    }
    rx.append(bytes);
    process();
}

void BootLoader::process()
{
    for (;;) {
        switch (step) {
        case Step::TokenAnswer: {
            const int at = int(rx.indexOf(char(0xE9)));
            if (at < 0) {
                rx.clear();
                return;
            }
            rx.remove(0, at + 1);
            step = Step::Echo;
            break;
        }
        case Step::Echo:
            if (rx.size() < versionBytes.size())
                return;
            if (!rx.startsWith(versionBytes)) {
                qDebug() << "boot loader: version echo differs:" << rx.left(versionBytes.size()).toHex(' ');
                finish(false);
                return;
            }
            rx.remove(0, versionBytes.size());
            step = Step::Ini;
            answer(QByteArray(1, char(0x06)));
            break;
        case Step::Ini:
            takeIni();
            return;
        case Step::Data:
            takeData();
            return;
        case Step::Log: {
            const int at = int(rx.indexOf(char(0xF7)));
            if (at < 0 || rx.size() - at - 1 < logText.size())
                return;
            if (rx.mid(at + 1, logText.size()) != logText)
                qDebug() << "boot loader: log echo differs";
            finish(result);
            return;
        }
        default:
            return;
        }
    }
}

void BootLoader::takeIni()
{
    // The INI packet's length is not on the wire: it ends where the bytes at
    // hand pass the CRC check.
    if (rx.size() < 3 + iniHeader + 2)
        return;
    if (crc16(rx) != 0) {
        if (rx.size() > maxIniPacket) {
            qDebug() << "boot loader: no valid INI packet in" << rx.size() << "bytes";
            answer(numbered(0x15, 0));
            leave(false);
        }
        return;
    }
    const QByteArray packet = rx;
    rx.clear();
    const bool header = packet.at(0) == 0x02 && packet.at(1) == 0 && packet.at(2) == 0;
    if (!header || (packet.at(3) != 'U' && packet.at(4) != 'P')) {
        qDebug() << "boot loader: INI packet without its marks";
        answer(numbered(0x15, 0));
        leave(false);
        return;
    }
    total = be16(packet, 3 + 6);
    imageSize = be32(packet, 3 + 8);
    if (options.silentAt == 0) {
        goSilent();
        return;
    }
    if (options.rejectAt == 0) {
        answer(numbered(0x15, 0));
        leave(false);
        return;
    }
    answer(numbered(0x06, 0));
    expected = 1;
    step = Step::Data;
    if (total == 0)
        leave(true);
}

int BootLoader::lastPacketSize() const
{
    if (imageSize == 0 || total == 0)
        return 0;
    const qint64 tail = qint64(imageSize) - qint64(total - 1) * dataSize;
    if (tail <= 0 || tail > dataSize)
        return 0;  // size and count disagree: fall back on the CRC
    return int(3 + tail + 2);
}

void BootLoader::takeData()
{
    while (step == Step::Data) {
        if (rx.isEmpty())
            return;
        if (rx.at(0) != 0x02) {
            // Out of step with the packets: skip to the next possible start.
            const int at = int(rx.indexOf(char(0x02)));
            qDebug() << "boot loader: skipping" << (at < 0 ? rx.size() : at) << "bytes";
            rx.remove(0, at < 0 ? rx.size() : at);
            continue;
        }
        if (rx.size() < 3)
            return;
        int size = fullPacket;
        if (be16(rx, 1) == total) {
            size = lastPacketSize();
            if (size == 0) {
                if (rx.size() >= 6 && crc16(rx) == 0)
                    size = int(rx.size());
                else if (rx.size() < fullPacket)
                    return;
                else
                    size = fullPacket;
            }
        }
        if (rx.size() < size)
            return;
        const QByteArray packet = rx.left(size);
        rx.remove(0, size);
        checkPacket(packet);
    }
}

void BootLoader::checkPacket(const QByteArray &packet)
{
    const quint16 sequence = be16(packet, 1);
    const bool good = crc16(packet) == 0;
    if (sequence == expected) {
        if (options.silentAt >= 0 && sequence >= options.silentAt) {
            goSilent();
            return;
        }
        if (!good || sequence == options.rejectAt) {
            if (!good)
                qDebug() << "boot loader: CRC error in packet" << sequence;
            answer(numbered(0x15, sequence));
            leave(false);
            return;
        }
        image.append(packet.mid(3, packet.size() - 5));
        answer(numbered(0x06, sequence));
        ++expected;
        if (sequence == total)
            leave(true);
    } else if (good && sequence + 1 == expected) {
        answer(numbered(0x06, sequence));  // our answer was late or lost: say it again
    } else {
        qDebug() << "boot loader: packet" << sequence << "while waiting for" << expected;
        answer(numbered(0x15, sequence));
        leave(false);
    }
}

void BootLoader::answer(const QByteArray &bytes)
{
    later([this, bytes] { emit send(bytes); });
}

void BootLoader::later(const std::function<void()> &action)
{
    if (options.lateMs <= 0)
        action();
    else
        QTimer::singleShot(options.lateMs, this, action);
}

void BootLoader::leave(bool ok)
{
    result = ok;
    if (!options.sendLog) {
        step = Step::Leaving;
        later([this] { finish(result); });
        return;
    }
    step = Step::Log;
    giveUp->stop();
    const int taken = expected > 0 ? expected - 1 : 0;
    logText = QString("boot log: %1 of %2 packets taken").arg(taken).arg(total).toUtf8();
    later([this] {
        QTimer::singleShot(logPauseMs, this, [this] {
            emit send(QByteArray(1, char(0x08)) + textFrame(logText));
            giveUp->start(logWaitMs);
        });
    });
}

void BootLoader::goSilent()
{
    step = Step::Silent;
    giveUp->start(silentGiveUpMs);
}

void BootLoader::finish(bool ok)
{
    if (step == Step::Done)
        return;
    step = Step::Done;
    giveUp->stop();
    if (!options.imageOut.isEmpty()) {
        QFile out(options.imageOut);
        if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate) || out.write(image) != image.size())
            qWarning() << "boot loader: cannot write" << options.imageOut;
    }
    emit finished(ok);
}
