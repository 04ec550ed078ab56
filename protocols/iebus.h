#ifndef IEBUS_H
#define IEBUS_H

#include <QByteArray>
#include <QObject>
#include <QString>

class MainWindow;

class Iebus : public QObject
{
    Q_OBJECT
public:
    // The settings dialog's IEBus check boxes: a set flag lets that traffic through.
    struct Filters
    {
        bool remote = true;
        bool button = true;
        bool amount = true;
    };

    Iebus(QObject *parent, MainWindow *mainWindow);

    void packageProcess(const QByteArray &frame);

    // Describes a record (checksum removed) and sets color; empty while the
    // interpret switch is off.
    QString interpretor(const QByteArray &record);

    // The line for one bus-data frame, or a null string when a filter hides
    // it or the frame is too short to hold a transfer. With interpret on,
    // *color is recomputed from the record; otherwise it colours the line as is.
    static QString line(const QByteArray &frame, quint32 lastTickEnd, const Filters &filters,
                        bool interpret, QString *color);
    // line for the next frame, lastTickEnd moved on when it is shown.
    static QString step(const QByteArray &frame, quint32 &lastTickEnd, const Filters &filters, bool interpret,
                        QString *color);

    // The broadcast/individual text of a record; never empty.
    static QString describe(const QByteArray &record);
    static QString colorOf(const QByteArray &record);

    MainWindow *mainWindow;
    QString color = QStringLiteral("black");
};

#endif // IEBUS_H
