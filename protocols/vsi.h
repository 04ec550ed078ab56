#ifndef VSI_H
#define VSI_H

#include <QByteArray>
#include <QObject>
#include <QString>

class MainWindow;

// VSI lines are the plain coloured hex of plainLine.
class VSI : public QObject
{
    Q_OBJECT
public:
    explicit VSI(MainWindow *mainWindow);

    void packageProcess(const QByteArray &frame);

    // Names a VSI record by its byte 3 and lists the fields of the machine's
    // reports. The line does not show it: VSI lines stay plain hex.
    static QString interpretor(const QByteArray &record);

    MainWindow *mainWindow;
};

#endif // VSI_H
