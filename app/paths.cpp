#include "app/paths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTemporaryFile>

namespace {

// Only creating a file tells the truth for root, whom the permission bits do
// not stop, and on a read-only mount, which they do not show.
bool canWrite(const QString &folder)
{
    QTemporaryFile probe(folder + QStringLiteral("/.vendscope-XXXXXX"));
    return probe.open();
}

// Root can write into /usr/bin too, but an installed program's files belong
// to the user, so the menu entry that the install put in place decides first.
bool installed(const QString &exeFolder)
{
    return QFileInfo::exists(exeFolder + QStringLiteral("/" VENDSCOPE_DESKTOP_FROM_BIN));
}

} // namespace

QString userPath(Place place)
{
    // Decided once, so that settings read at start-up are written back to the same file.
    static const QString exeFolder = QCoreApplication::applicationDirPath();
    static const bool beside = !installed(exeFolder) && canWrite(exeFolder);

    const auto location = place == Place::Settings ? QStandardPaths::AppConfigLocation : QStandardPaths::AppDataLocation;
    const QString base = beside ? exeFolder : QStandardPaths::writableLocation(location);
    QString path = base;
    switch (place) {
    case Place::Settings:
        path += QStringLiteral("/settings.ini");
        break;
    case Place::Firmware:
        path += QStringLiteral("/firmware");
        break;
    case Place::Captures:
        path += QStringLiteral("/captures");
        break;
    case Place::Logs:
        break;
    }
    if (!beside)
        QDir().mkpath(place == Place::Settings ? base : path);
    return path;
}
