#ifndef BILL_H
#define BILL_H

#include <QObject>
#include <QString>

// Bill validator decoding. Commands (security, billType, escrow)
// get the bytes between the command byte and the checksum; replies (setup,
// poll, stacker) get the reply without its checksum. A count the decoder
// does not accept, negative ones included, gives the length error line.
class Bill : public QObject
{
    Q_OBJECT
public:
    Bill();

    static QString setup(const unsigned char *p, int n);
    static QString poll(const unsigned char *p, int n);
    static QString stacker(const unsigned char *p, int n);
    static QString security(const unsigned char *p, int n);
    static QString billType(const unsigned char *p, int n);
    static QString escrow(const unsigned char *p, int n);
};

#endif // BILL_H
