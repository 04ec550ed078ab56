// Deciding whether a published version is newer than the one in use.
#include "update/versioncompare.h"

#include <QtTest>

class TestUpdateVersion : public QObject
{
    Q_OBJECT
private slots:
    void newer_data()
    {
        QTest::addColumn<QString>("latest");
        QTest::addColumn<QString>("current");
        QTest::addColumn<bool>("newer");
        QTest::newRow("equal is not newer") << "2.0.1" << "2.0.1" << false;
        QTest::newRow("older is not newer") << "2.0.0" << "2.0.1" << false;
        QTest::newRow("numbers compare as numbers, not text") << "2.0.10" << "2.0.1" << true;
        QTest::newRow("beta against 1.0 compares text and is newer") << "beta" << "1.0" << true;
        QTest::newRow("text comparison is case-sensitive") << "Beta" << "alpha" << false;
        QTest::newRow("an unreported current version is older than any") << "1.0" << "" << true;
        QTest::newRow("an empty manifest version is never newer") << "" << "1.0" << false;
        QTest::newRow("a number too large for a segment makes it text") << "99999999999999999999.1" << "1.0" << true;
    }
    void newer()
    {
        QFETCH(QString, latest);
        QFETCH(QString, current);
        QTEST(isNewerVersion(latest, current), "newer");
    }
};

QTEST_APPLESS_MAIN(TestUpdateVersion)
#include "tst_updateversion.moc"
