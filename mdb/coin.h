#ifndef COIN_H
#define COIN_H

#include <QByteArray>
#include <QObject>
#include <QString>

// Coin changer decoding. Every decoder takes the message's data
// bytes as the interpreter holds them: command byte (or first reply byte)
// first and checksum last, and reads nothing past p[n - 1].
class Coin : public QObject
{
    Q_OBJECT
public:
    explicit Coin(QObject *parent = nullptr);

    // Reply to SEND DIAGNOSTIC STATUS, checksum included.
    static QString changerDiagnosticStatus(const QByteArray &data);
    static QString changerDiagnosticStatus(const unsigned char *p, int n);

    // COIN TYPE command 0C: "COIN TYPE<br>" and the two bit rows.
    static QString coinType(const unsigned char *p, int n);
    // EXPANSION command 0F: "EXPANSION /" and the sub-command (byte 1).
    static QString expansion(const unsigned char *p, int n);
    // FEATURE ENABLE list of an EXPANSION 0F 01 command (bytes 2 to 5).
    static QString featureEnable(const unsigned char *p, int n);
    // Reply to SETUP: decoded only with 23 bytes before the checksum.
    static QString setupReply(const unsigned char *p, int n);
    // Reply to TUBE STATUS (bytes 0 to 17).
    static QString tubeStatus(const unsigned char *p, int n);
    // Reply to EXPANSION IDENTIFICATION: decoded only with 33 bytes before
    // the checksum.
    static QString identification(const unsigned char *p, int n);
};

#endif // COIN_H
