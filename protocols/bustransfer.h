#ifndef BUSTRANSFER_H
#define BUSTRANSFER_H

#include <QByteArray>
#include <QString>
#include <QtGlobal>

// One bus transfer as the box reports it inside a bus-data frame.
struct BusTransfer
{
    quint32 startTick = 0;
    quint32 endTick = 0;
    int direction = 0; // signed byte 13
    QByteArray bytes;  // from dataOffset up to the FCC, empty when there is no room
};

// A bus-data frame needs its 15 header bytes and the 3 trailer bytes before
// any of its fields can be read.
bool holdsTransfer(const QByteArray &frame);

// Reads the ticks, the direction and the bus bytes from dataOffset on.
// False, and out untouched, when holdsTransfer fails.
bool readTransfer(const QByteArray &frame, int dataOffset, BusTransfer *out);

// Gap since the end of the previous transfer shown; a tick counter that
// wrapped gives the unsigned difference, as the box's counter does.
QString tickGap(quint32 startTick, quint32 lastTickEnd);

// Fills a "%1 gap, %2 bytes" template.
QString fillLine(const char *tmpl, const BusTransfer &t, quint32 lastTickEnd);

// The plain coloured hex line shared by VSI and the serial modes: blue one
// way, green the other, an empty string for any other direction, a null
// string for a frame too short to hold a transfer.
QString plainLine(const QByteArray &frame, quint32 lastTickEnd);

// The plain line of a frame, lastTickEnd moved on; a frame too short to
// hold a transfer gets a debug message and a null string.
QString plainStep(const QByteArray &frame, quint32 &lastTickEnd);

#endif // BUSTRANSFER_H
