#include "mdb/mdb.h"

#include "app/mainwindow.h"
#include "ui_mainwindow.h"

QString hexStringGenerate(const QByteArray &data)
{
    static const char digits[] = "0123456789ABCDEF";
    QString out;
    out.reserve(data.size() * 3);
    for (int i = 0; i < data.size(); ++i) {
        const auto b = static_cast<unsigned char>(data.at(i));
        if (i)
            out.append(QLatin1Char(' '));
        out.append(QLatin1Char(digits[b >> 4]));
        out.append(QLatin1Char(digits[b & 0x0F]));
    }
    return out;
}

MDB::MDB(MainWindow *mainWindow)
    : QObject(nullptr), mainWindow(mainWindow)
{
}

void MDB::packageProcess(const QByteArray &frame)
{
    Q_UNUSED(frame);
}
