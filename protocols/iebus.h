#ifndef IEBUS_H
#define IEBUS_H

#include <QByteArray>
#include <QObject>

class MainWindow;

class Iebus : public QObject
{
    Q_OBJECT
public:
    Iebus(QObject *parent, MainWindow *mainWindow);

    void packageProcess(const QByteArray &frame);

    MainWindow *mainWindow;
};

#endif // IEBUS_H
