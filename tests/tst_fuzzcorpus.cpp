// Replays every saved fuzz input through its target's own entry point, under the sanitizers with or without clang.
#include "testsupport.h"

#include "fuzz/fuzzsupport.h"

#include <QDir>

#include <cstdint>

// The build compiles each fuzz_<name>.cpp with its entry renamed to these.
extern "C" int fuzz_receiver_entry(const uint8_t *data, size_t size);
extern "C" int fuzz_mdb_entry(const uint8_t *data, size_t size);
extern "C" int fuzz_renderers_entry(const uint8_t *data, size_t size);
extern "C" int fuzz_fwupgrade_entry(const uint8_t *data, size_t size);
extern "C" int fuzz_scenario_entry(const uint8_t *data, size_t size);
extern "C" int fuzz_manifest_entry(const uint8_t *data, size_t size);

static const QMap<QString, int (*)(const uint8_t *, size_t)> targets{
    {"receiver", fuzz_receiver_entry}, {"mdb", fuzz_mdb_entry}, {"renderers", fuzz_renderers_entry},
    {"fwupgrade", fuzz_fwupgrade_entry}, {"scenario", fuzz_scenario_entry}, {"manifest", fuzz_manifest_entry}};
static const QDir fuzzDir(VS_SOURCE_DIR "/fuzz");

class TestFuzzCorpus : public QObject
{
    Q_OBJECT
private slots:
    // Bad frames are logged by the hundred; only the outcome matters here.
    void initTestCase() { qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {}); }

    void replay_data()
    {
        QTest::addColumn<QString>("target");
        QTest::addColumn<QString>("path");
        for (const QString &name : targets.keys())
            for (const QFileInfo &file : QDir(fuzzDir.filePath("corpus/" + name)).entryInfoList(QDir::Files))
                QTest::newRow(qPrintable(name + "/" + file.fileName())) << name << file.filePath();
    }

    // Passing means the sanitizers and the targets' own checks found nothing.
    void replay()
    {
        QFETCH(QString, target);
        QFETCH(QString, path);
        QFile file(path);
        QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(path));
        const QByteArray input = file.readAll();
        QCOMPARE(targets[target](reinterpret_cast<const uint8_t *>(input.constData()), size_t(input.size())), 0);
    }

    // The targets share one window; it must go before the application object.
    void cleanupTestCase() { fuzz::releaseWindow(); }
};

QTEST_MAIN(TestFuzzCorpus)
#include "tst_fuzzcorpus.moc"
