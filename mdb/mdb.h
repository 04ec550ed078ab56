#ifndef MDB_H
#define MDB_H

#include <QByteArray>
#include <QObject>
#include <QSet>
#include <QString>

class MainWindow;

// Bytes as two upper-case hex digits each, one blank between.
QString hexStringGenerate(const QByteArray &data);

class MDB : public QObject
{
    Q_OBJECT
public:
    explicit MDB(MainWindow *mainWindow);

    void packageProcess(const QByteArray &frame);

    MainWindow *mainWindow;
};

#endif // MDB_H
