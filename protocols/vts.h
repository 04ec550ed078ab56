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

    void packageProcess(const QByteArray &frame);

    QString translation;

signals:
    void showTranslation();
};

#endif // VTS_H
