#ifndef MDBMESSAGE_H
#define MDBMESSAGE_H

// What an MDB message is, told from its mode bits and first byte alone. The
// line builder and the bus insight both ask here, so they never disagree on
// which bytes were a command, a reply or an acknowledgement.

#include <QByteArray>

namespace MdbMessage {

// The command bytes the analyser knows, by device.
inline constexpr unsigned char coinCommands[] = {0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0F};
inline constexpr unsigned char coinExpansionSubcommands[] = {0x00, 0x01, 0x05};
inline constexpr unsigned char billCommands[] = {0x30, 0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37};
inline constexpr unsigned char cashless1Commands[] = {0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x17};
inline constexpr unsigned char cashless2Commands[] = {0x60, 0x61, 0x62, 0x63, 0x64, 0x65, 0x67};

// True for a byte of any of the four command lists.
bool knownCommand(unsigned char c);

enum class Kind {
    Empty,
    Command,       // the VMC marks its command byte (a peripheral's lone marked NAK lands here too)
    PeripheralAck, // a lone 00 with its mode bit
    Reply,         // a peripheral marks the last byte of its data
    VmcAck,        // the VMC's acknowledgements carry no mode bit
    VmcNak,
    VmcRet,
    VmcOther,      // unmarked bytes that are none of the three
};

// n data bytes, the first of them, and whether the first and the last carry the mode bit.
Kind classify(int n, unsigned char first, bool firstMarked, bool lastMarked);

// The last byte of a message is the 8-bit sum of the others. The bytes are
// read every `stride` bytes, so a box frame's data can be checked in place.
bool checksumOk(const unsigned char *d, int n, int stride = 1);

// An MDB message where it lies in a bus-data frame: data bytes at even
// offsets of the payload, mode bytes at odd ones; an odd trailing byte is a
// data byte whose mode byte is missing (read as clear).
class InPlace
{
public:
    // False for a frame too short to be bus data.
    bool read(const QByteArray &frame);

    int size() const { return (payloadSize + 1) / 2; }
    const unsigned char *bytes() const { return payload; } // stride 2
    unsigned char data(int i) const { return payload[2 * i]; }
    char modeByte(int i) const { return 2 * i + 1 < payloadSize ? char(payload[2 * i + 1]) : '\0'; }
    // The mode bit as the interpreter reads it: the box sends exactly 1.
    bool marked(int i) const { return modeByte(i) == 1; }
    Kind kind() const;

private:
    const unsigned char *payload = nullptr;
    int payloadSize = 0;
};

} // namespace MdbMessage

#endif // MDBMESSAGE_H
