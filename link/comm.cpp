#include "link/comm.h"

#include "app/mainwindow.h"
#include "link/frame.h"
#include "settings/settings.h"

#include <QDebug>
#include <QSerialPort>

Comm::Comm(MainWindow *mainWindow)
    : QObject(nullptr), mainWindow(mainWindow)
{
}

void Comm::transmit(QByteArray &data)
{
    QSerialPort *port = mainWindow->settings->serialPort;
    if (!port->isOpen()) {
        qDebug() << "Port not open yet!";
        return;
    }
    port->write(data);
}

void Comm::modeSet(int mode, int rate)
{
    // Only the low 8 bits travel: an empty rate list (-1) goes out as 0xFF.
    QByteArray body;
    body.append(char(mode & 0xFF));
    body.append(char(rate & 0xFF));
    QByteArray frame = BoxFrame::build(BoxFrame::KindModeSet, body);
    transmit(frame);
}

void Comm::connect()
{
    QByteArray frame = BoxFrame::build(0x03);
    transmit(frame);
}

void Comm::heart()
{
    QByteArray frame = BoxFrame::build(BoxFrame::KindHeart);
    transmit(frame);
}

void Comm::boot()
{
    QByteArray frame = BoxFrame::build(BoxFrame::KindBoot);
    transmit(frame);
}
