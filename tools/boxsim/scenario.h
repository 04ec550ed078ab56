#ifndef SCENARIO_H
#define SCENARIO_H

#include <QByteArray>
#include <QString>
#include <QVector>
#include <QtGlobal>

// One bus transfer as the box reports it.
struct Transfer
{
    int direction = 0;    // 0 and 1 the two sides of the bus, 2 a sync mark
    quint32 gap = 0;      // ticks from the end of the previous transfer
    QByteArray bytes;     // the bus bytes
    QByteArray modeBits;  // one 0 or 1 per byte: the MDB ninth bit
};

// The transfers of one scenario file. Those before loopStart play once, the
// rest over and over.
struct Scenario
{
    QString name;
    QVector<Transfer> transfers;
    int loopStart = 0;
};

// Scenario files are plain text, one transfer a line:
//
//   <direction> <gap> <byte> <byte> ...    # comment
//
// direction: M (the bus master, 0), S (a slave, 1) or a number 0 to 255.
// gap:       decimal ticks since the end of the previous transfer.
// byte:      two hex digits; a trailing * sets the MDB mode bit.
//            "text" gives its characters as bytes.
//            CHK is the 8-bit sum of the bytes before it on the line, or of
//            those after the last | when the line has one.
// A line holding only the word loop marks where the repetition starts.
namespace ScenarioParser {
constexpr int maxBytesPerLine = 4096;
constexpr qint64 maxFileSize = 1 << 20;
constexpr quint32 maxGap = 1000000000;

// On failure error holds "file:line: what is wrong".
bool parse(const QByteArray &text, const QString &fileName, Scenario &out, QString &error);
bool load(const QString &path, Scenario &out, QString &error);
} // namespace ScenarioParser

// The bytes a bus-data frame carries after its mode byte: MDB sends each bus
// byte as a pair (data, mode bit); the other buses their bytes as they are.
QByteArray wireBytes(const Transfer &t, int mode);

#endif // SCENARIO_H
