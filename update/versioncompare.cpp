#include "update/versioncompare.h"

#include <QVersionNumber>

bool isNewerVersion(const QString &latest, const QString &current)
{
    const QVersionNumber latestNumber = QVersionNumber::fromString(latest);
    const QVersionNumber currentNumber = QVersionNumber::fromString(current);
    if (!latestNumber.isNull() && !currentNumber.isNull())
        return QVersionNumber::compare(latestNumber, currentNumber) > 0;
    // Names such as "beta" have no numbers to go by.
    return QString::compare(current, latest, Qt::CaseSensitive) < 0;
}
