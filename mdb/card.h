#ifndef CARD_H
#define CARD_H

#include <QObject>
#include <QString>

// Cashless device decoding. The dispatchers get the bytes
// of a VMC command between its command byte and checksum (setup, vend,
// expansion), or the reader's POLL reply without its checksum (poll); byte 0
// is the subcommand or response code. A count below 1 gives the length error
// line, so nothing outside the message is read.
class Card : public QObject
{
    Q_OBJECT
public:
    explicit Card(QObject *parent = nullptr);

    static QString setup(const unsigned char *p, int n);
    static QString vend(const unsigned char *p, int n);
    static QString expansion(const unsigned char *p, int n);
    static QString poll(const unsigned char *p, int n);
};

// Message decoders, free functions of card.cpp, exposed for the tests.
namespace Cashless {
QString setupConfigData(const unsigned char *p, int n);
QString setupMaxMinPrice(const unsigned char *p, int n);
QString vendRequest(const unsigned char *p, int n);
QString vendSuccess(const unsigned char *p, int n);
QString expansionRequestID(const unsigned char *p, int n);
QString expansionOptionalFeature(const unsigned char *p, int n);
QString readerConfigData(const unsigned char *p, int n);
QString displayRequest(const unsigned char *p, int n);
QString beginSession(const unsigned char *p, int n);
QString vendApproved(const unsigned char *p, int n);
QString peripheralID(const unsigned char *p, int n);
} // namespace Cashless

#endif // CARD_H
