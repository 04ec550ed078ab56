#ifndef VTS_H
#define VTS_H

#include <QByteArray>
#include <QObject>
#include <QString>

class VTS : public QObject
{
    Q_OBJECT
public:
    explicit VTS(QObject *parent = nullptr);

    // Stores the line in translation and signals it; the main window shows it.
    void packageProcess(const QByteArray &frame);

    // The line of a master (0) or slave (1) transfer, with its first byte
    // marked when it is the first after a sync point; a null string for any
    // other direction or a frame too short to hold a transfer.
    static QString line(const QByteArray &frame, quint32 lastTickEnd, bool afterSync);
    // line for the next frame with the carried tick and sync mark moved on;
    // a null string for a sync point or a direction without a line.
    static QString step(const QByteArray &frame, quint32 &lastTickEnd, qint32 &synByte);

    QString translation;

signals:
    void showTranslation();
};

#endif // VTS_H
