#ifndef VSI_H
#define VSI_H

#include <QByteArray>
#include <QObject>

class MainWindow;

class VSI : public QObject
{
    Q_OBJECT
public:
    explicit VSI(MainWindow *mainWindow);

    void packageProcess(const QByteArray &frame);

    MainWindow *mainWindow;
};

#endif // VSI_H
