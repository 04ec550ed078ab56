#include "update/fwupgrade.h"
#include "ui_dialogfirmware.h"

#include "link/frame.h"
#include "mdb/mdb.h"

#include <QDebug>
#include <QDir>
#include <QSerialPort>

unsigned short UpdateCRC16(unsigned short crc, unsigned char byte)
{
    unsigned int reg = crc;
    for (int bit = 0; bit < 8; ++bit) {
        reg = (reg << 1) | ((byte & 0x80) ? 1u : 0u);
        byte = static_cast<unsigned char>(byte << 1);
        if (reg & 0x10000u)
            reg ^= 0x11021u;
    }
    return static_cast<unsigned short>(reg);
}

unsigned short Cal_CRC16(const unsigned char *data, unsigned int size)
{
    unsigned short crc = 0;
    for (unsigned int i = 0; i < size; ++i)
        crc = UpdateCRC16(crc, data[i]);
    // Two zero bytes push the last data bits through the register.
    crc = UpdateCRC16(crc, 0);
    crc = UpdateCRC16(crc, 0);
    return crc;
}

static void appendCrc(QByteArray &packet)
{
    const unsigned short crc =
        Cal_CRC16(reinterpret_cast<const unsigned char *>(packet.constData()), unsigned(packet.size()));
    packet.append(char(crc >> 8));
    packet.append(char(crc & 0xFF));
}

FWUpgrade::FWUpgrade(QSerialPort *port, Ui::DialogFirmware *ui)
    : QThread(nullptr), port(port), ui(ui), stallTimer(new QTimer(this))
{
    responseTimer.setSingleShot(true);
    connect(&responseTimer, &QTimer::timeout, this, &FWUpgrade::responseTimeout);

    stallTimer->setInterval(3000);
    stallTimer->setSingleShot(true);
    // Only the running flag: the box frame receiver takes the port back, the
    // state machine stays where it stopped.
    connect(stallTimer, &QTimer::timeout, this, [this] { upgradeRunning = false; });
}

bool FWUpgrade::openFirmware(const QString &filePath)
{
    ui->labelStatus->setText("File not found");
    if (filePath.isEmpty() || !QDir(filePath).exists())
        return false;

    const QDir dir(filePath);
    QString ini;
    QString dat;
    for (const QString &name : dir.entryList(QDir::Files, QDir::NoSort)) {
        if (name.startsWith("INI"))
            ini = name;
        else if (name.startsWith("DAT"))
            dat = name;
    }
    if (ini.isEmpty() || dat.isEmpty())
        return false;
    // INI_v2.1.bin goes with DAT_v2.1.bin only.
    if (ini.mid(3) != dat.mid(3))
        return false;

    iniPath = dir.filePath(ini);
    datPath = dir.filePath(dat);
    iniFile.close();
    datFile.close();
    iniFile.setFileName(iniPath);
    datFile.setFileName(datPath);
    ui->labelStatus->setText("File ok");
    return true;
}

bool FWUpgrade::upgradeCondition() const
{
    return !iniFile.fileName().isEmpty() && !datFile.fileName().isEmpty();
}

void FWUpgrade::upgradeHandling(const QByteArray &data)
{
    rxBuffer.append(data);
    while (!rxBuffer.isEmpty()) {
        const auto first = static_cast<unsigned char>(rxBuffer.at(0));
        switch (rxState) {
        case Rx_Token:
            if (first == 0x08) {
                tokenResponse(0x08);
                rxStateTrans(Rx_Log);
            } else if (first == 0x16 && upgradeCondition()) {
                tokenResponse(0x16);
                rxStateTrans(Rx_UP);
            }
            rxBuffer.remove(0, 1);
            break;
        case Rx_UP:
            if (!versionResponse())
                return;
            stallTimer->start();
            rxStateTrans(Rx_INI);
            break;
        case Rx_INI:
            if (first == 0x06) {
                waitResponseReset();
                if (binSendINI()) {
                    stallTimer->start();
                    rxStateTrans(Rx_Data);
                } else {
                    procedureReset();
                }
            }
            rxBuffer.remove(0, 1);
            break;
        case Rx_Data:
            if (first == 0x06 || first == 0x15) {
                if (rxBuffer.size() < 3)
                    return;
                const quint16 number = be16(reinterpret_cast<const unsigned char *>(rxBuffer.constData()) + 1);
                if (number == sequence) {
                    waitResponseReset();
                    stallTimer->start();
                    if (first == 0x15) {
                        ui->labelStatus->setText("Upgrade was rejected");
                        procedureReset();
                    } else if (!binSendDAT()) {
                        procedureReset();
                    }
                }
            }
            // The number bytes stay: an answer that did not match is passed
            // over one byte at a time.
            rxBuffer.remove(0, 1);
            break;
        case Rx_Log:
            if (!versionResponse())
                return;
            waitResponseReset();
            rxStateTrans(Rx_Token);
            break;
        default:
            rxStateTrans(Rx_Token);
            break;
        }
    }
}

bool FWUpgrade::versionResponse()
{
    if (rxBuffer.isEmpty())
        return false;
    if (rxBuffer.at(0) != '~') {
        rxBuffer.remove(0, 1);
        return false;
    }
    if (rxBuffer.size() < 2)
        return false;
    if (rxBuffer.at(1) != '$') {
        rxBuffer.remove(0, 2);
        return false;
    }
    if (rxBuffer.size() < 3)
        return false;
    const int length = static_cast<unsigned char>(rxBuffer.at(2));
    if (length > rxBuffer.size())
        return false;
    qDebug() << "len" << length;
    if (length < 3) {
        // The length counts its own three header bytes; anything less is noise.
        qDebug() << "text frame length below its header:" << length;
        rxBuffer.remove(0, 3);
        return false;
    }
    translate(rxBuffer.mid(3, length - 3));
    rxBuffer.remove(0, length);
    return true;
}

void FWUpgrade::translate(const QByteArray &payload)
{
    QByteArray values;
    values.reserve(payload.size() + 1);
    for (const char c : payload) {
        // Digits and the letters A to F; anything else wraps in eight bits.
        const auto u = static_cast<unsigned char>(c);
        values.append(char(static_cast<signed char>(c) <= 0x40 ? u - 0x30 : u - 0x37));
    }
    if (values.size() % 2 != 0) {
        values.append(char(45));
        qWarning() << "Warning: Nibble array size is odd!" << payload.size();
    }

    QByteArray text;
    text.reserve(values.size() / 2);
    for (int k = 0; k < values.size() / 2; ++k) {
        // The second character of each pair is the high half.
        const auto low = static_cast<unsigned char>(values.at(2 * k));
        const auto high = static_cast<unsigned char>(values.at(2 * k + 1));
        const auto byte = static_cast<unsigned char>(high * 16 + low);
        text.append(char(byte ^ static_cast<unsigned char>(k)));
    }
    transmit(text);
    ui->labelStatus->setText(QString::fromUtf8(text));
}

void FWUpgrade::tokenResponse(char token)
{
    transmit(QByteArray(1, char(~token)));
}

void FWUpgrade::transmit(const QByteArray &packet)
{
    lastPacket = packet;
    retryCount = 0;
    writePort(lastPacket);
    responseTimer.start(responseTimeoutMs);
}

void FWUpgrade::writePort(const QByteArray &bytes)
{
    // The reconnect timer may have the port closed for a moment.
    if (!port->isOpen()) {
        qDebug() << "Port not open yet!";
        return;
    }
    port->write(bytes);
}

void FWUpgrade::waitResponseReset()
{
    responseTimer.stop();
    retryCount = 0;
}

void FWUpgrade::rxStateTrans(RxState state)
{
    rxState = state;
    qDebug() << "rxState->" << rxStateName[state];
}

void FWUpgrade::procedureReset()
{
    rxStateTrans(Rx_Token);
    rxBuffer.clear();
    waitResponseReset();
}

bool FWUpgrade::binSendINI()
{
    if (!iniFile.open(QIODevice::ReadOnly)) {
        qDebug() << iniFile.fileName();
        return false;
    }
    datFile.close();
    const QByteArray ini = iniFile.readAll();
    iniFile.close();

    // The header runs to byte 11; the version text starts at 12.
    constexpr int versionOffset = 12;
    if (ini.size() < versionOffset) {
        qDebug() << "INI file too short:" << ini.size() << iniPath;
        return false;
    }
    if (ini.at(0) != 'U' && ini.at(1) != 'P')
        return false;

    const auto *p = reinterpret_cast<const unsigned char *>(ini.constData());
    total = be16(p + 6);
    chunkField = be16(p + 4);
    sequence = 0;

    QByteArray packet;
    packet.reserve(ini.size() + 5);
    packet.append(char(0x02));
    packet.append(char(0x00));
    packet.append(char(0x00));
    packet.append(ini);
    appendCrc(packet);
    ui->progressBar->setValue(0);

    int end = ini.indexOf('\0', versionOffset);
    if (end < 0) {
        qDebug() << "INI version text has no end mark; showing the rest of the file";
        end = int(ini.size());
    }
    const QString version = QString::fromUtf8(ini.mid(versionOffset, end - versionOffset));
    ui->labelStatus->setText(QString("V : %1 Chunk : %3 Total : %4 ").arg(version).arg(chunkField).arg(total));

    // Not remembered and not timed: the box answers it or the stall timer ends it.
    writePort(packet);
    return true;
}

bool FWUpgrade::binSendDAT()
{
    if (sequence == total) {
        ui->labelStatus->setText("Upgrade end");
        stallTimer->stop();
        upgradeRunning = false;
        emit upgradeEnd();
        return false;
    }
    if (!datFile.isOpen() && !datFile.open(QIODevice::ReadOnly)) {
        qDebug() << "cannot open" << datFile.fileName();
        return false;
    }
    if (!datFile.seek(qint64(sequence) * chunkSize)) {
        qDebug() << "cannot seek" << datFile.fileName() << "to packet" << sequence + 1;
        datFile.close();
        return false;
    }

    ++sequence;
    const QByteArray data = datFile.read(chunkSize);
    if (data.isEmpty())
        qDebug() << "DAT file ends before packet" << sequence;

    QByteArray packet;
    packet.reserve(data.size() + 5);
    packet.append(char(0x02));
    packet.append(char(sequence >> 8));
    packet.append(char(sequence & 0xFF));
    packet.append(data);
    appendCrc(packet);
    ui->labelStatus->setText(QString("Sequence : %1").arg(sequence));
    transmit(packet);

    ui->progressBar->setValue(ui->progressBar->maximum() * sequence / total);
    datFile.close();
    return true;
}

void FWUpgrade::responseTimeout()
{
    if (retryCount > 2) {
        procedureReset();
        return;
    }
    writePort(lastPacket);
    responseTimer.start(responseTimeoutMs);
    ++retryCount;

    quint16 number = 0;
    if (lastPacket.size() >= 3)
        number = be16(reinterpret_cast<const unsigned char *>(lastPacket.constData()) + 1);
    else
        qDebug().noquote() << "resent answer carries no sequence number:" << hexStringGenerate(lastPacket);
    ui->labelStatus->setText(QString("Response Timeout %1 sequence %2").arg(retryCount).arg(number));
}
