// Replays the saved fuzz corpora through the fuzz targets' own entry points,
// so that every input that once found a fault keeps running under the
// sanitizers, with or without clang.
#include "testsupport.h"

#include "fuzz/fuzzsupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstddef>
#include <cstdint>

// The build compiles each fuzz_<name>.cpp with its entry renamed to these.
extern "C" int fuzz_receiver_entry(const uint8_t *data, size_t size);
extern "C" int fuzz_mdb_entry(const uint8_t *data, size_t size);
extern "C" int fuzz_renderers_entry(const uint8_t *data, size_t size);
extern "C" int fuzz_fwupgrade_entry(const uint8_t *data, size_t size);
extern "C" int fuzz_scenario_entry(const uint8_t *data, size_t size);
extern "C" int fuzz_manifest_entry(const uint8_t *data, size_t size);

namespace {

struct Target
{
    const char *name;
    int (*entry)(const uint8_t *, size_t);
};

constexpr Target targets[] = {
    {"receiver", fuzz_receiver_entry},
    {"mdb", fuzz_mdb_entry},
    {"renderers", fuzz_renderers_entry},
    {"fwupgrade", fuzz_fwupgrade_entry},
    {"scenario", fuzz_scenario_entry},
    {"manifest", fuzz_manifest_entry},
};

const QString fuzzDir = QStringLiteral(VS_SOURCE_DIR "/fuzz");

QStringList corpusFiles(const QString &target)
{
    return QDir(fuzzDir + "/corpus/" + target).entryList(QDir::Files, QDir::Name);
}

} // namespace

class TestFuzzCorpus : public QObject
{
    Q_OBJECT
private slots:
    void everyTargetIsReplayed();
    void replay_data();
    void replay();
    void cleanupTestCase();
};

// A fuzz target without a row here, or without seeds, would drop out of CI
// silently.
void TestFuzzCorpus::everyTargetIsReplayed()
{
    QStringList sources;
    for (const QString &file : QDir(fuzzDir).entryList({"fuzz_*.cpp"}, QDir::Files, QDir::Name))
        sources << QFileInfo(file).completeBaseName().mid(5);
    QStringList replayed;
    for (const Target &t : targets) {
        replayed << QString::fromLatin1(t.name);
        QVERIFY2(!corpusFiles(t.name).isEmpty(), t.name);
    }
    replayed.sort();
    QCOMPARE(replayed, sources);
}

void TestFuzzCorpus::replay_data()
{
    QTest::addColumn<int>("target");
    QTest::addColumn<QString>("path");
    for (int i = 0; i < int(std::size(targets)); ++i) {
        const QString name = QString::fromLatin1(targets[i].name);
        for (const QString &file : corpusFiles(name))
            QTest::newRow(qPrintable(name + "/" + file)) << i << fuzzDir + "/corpus/" + name + "/" + file;
    }
}

// Passing means the sanitizers and the targets' own checks found nothing.
void TestFuzzCorpus::replay()
{
    QFETCH(int, target);
    QFETCH(QString, path);
    QFile file(path);
    QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(path));
    const QByteArray input = file.readAll();
    // Bad frames are logged by the hundred; only the outcome matters here.
    const QtMessageHandler previous =
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    const int result = targets[target].entry(reinterpret_cast<const uint8_t *>(input.constData()), size_t(input.size()));
    qInstallMessageHandler(previous);
    QCOMPARE(result, 0);
}

// The targets share one window; it must go before the application object.
void TestFuzzCorpus::cleanupTestCase()
{
    fuzz::releaseWindow();
}

QTEST_MAIN(TestFuzzCorpus)
#include "tst_fuzzcorpus.moc"
