// Capture files: pcapng written and read back, damaged files, the live
// recorder's folder bound and failures, and the Wireshark MDB export.
#include "testsupport.h"

#include "capture/pcapng.h"
#include "capture/recorder.h"
#include "capture/wireshark.h"

#include <pcap/pcap.h>

#include <csignal>
#include <sys/resource.h>

namespace {

using Packets = QList<QPair<qint64, QByteArray>>; // time, bytes

// A number as `bytes` bytes in either order, for hand-made blocks.
QByteArray num(quint64 v, int bytes, bool big = false)
{
    QByteArray b(bytes, '\0');
    for (int i = 0; i < bytes; ++i)
        b[big ? bytes - 1 - i : i] = char(v >> (8 * i));
    return b;
}

// A pcapng file built block by block, in either byte order.
struct Blocks
{
    bool big = false;
    QByteArray out;

    Blocks &block(quint32 type, QByteArray body)
    {
        body.append(QByteArray(-body.size() & 3, '\0'));
        const QByteArray length = num(12 + body.size(), 4, big);
        out += num(type, 4, big) + length + body + length;
        return *this;
    }
    Blocks &section(bool bigEndian)
    {
        big = bigEndian;
        return block(0x0A0D0D0A, num(0x1A2B3C4D, 4, big) + num(1, 2, big) + num(0, 2, big) + num(~0ULL, 8, big));
    }
    // With tsresol >= 0, an if_tsresol option of that value.
    Blocks &interface(quint32 linkType, int tsresol = -1, quint16 optionLength = 1)
    {
        QByteArray body = num(linkType, 2, big) + num(0, 2, big) + num(65535, 4, big);
        if (tsresol >= 0)
            body += num(9, 2, big) + num(optionLength, 2, big) + char(tsresol) + QByteArray(3, '\0');
        return block(1, body);
    }
    Blocks &packet(quint32 number, quint64 ticks, const QByteArray &data)
    {
        return block(6, num(number, 4, big) + num(ticks >> 32, 4, big) + num(ticks & 0xFFFFFFFF, 4, big)
                            + num(data.size(), 4, big) + num(data.size(), 4, big) + data);
    }
};

QByteArray written(const Packets &packets)
{
    QByteArray out = Pcapng::header();
    for (const auto &p : packets)
        Pcapng::appendPacket(out, p.first, p.second);
    return out;
}

Pcapng::Result readAll(const QByteArray &data, Packets *packets)
{
    return Pcapng::read(data.constData(), data.size(),
                        [&](qint64 t, const QByteArray &p) { packets->append({t, p}); });
}

QByteArray fileData(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

qint64 captureBytes(const QString &folder)
{
    qint64 total = 0;
    for (const QFileInfo &info : QDir(folder).entryInfoList({"capture_*.pcapng"}, QDir::Files))
        total += info.size();
    return total;
}

// Box frames of 9, 10 and 11 bytes, which need every padding, at times up to 2100.
const Packets three = {{1, BoxFrame::build(5, "a")},
                       {1700000000123456, BoxFrame::build(5, "bc")},
                       {4102444800000000, BoxFrame::build(5, "def")}};

} // namespace

class TestCapture : public QObject
{
    Q_OBJECT
private slots:
    void read_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<int>("status");
        QTest::addColumn<Packets>("packets");
        QTest::addColumn<QString>("message"); // a part of it

        using R = Pcapng::Result;
        const auto row = [](const char *name, const QByteArray &data, R::Status status, const Packets &packets,
                            const QString &message = QString()) {
            QTest::newRow(name) << data << int(status) << packets << message;
        };
        const QByteArray good = written(three);
        const qsizetype p2 = Pcapng::header().size() + 44, p3 = p2 + 44; // every packet block of `three` is 44 bytes
        const auto patched = [&](qsizetype at, quint32 v) { return QByteArray(good).replace(at, 4, num(v, 4)); };
        const QString at2 = QString("byte %1").arg(p2), at3 = QString("byte %1").arg(p3);
        const Packets largest = {{42, busFrame(1, 2, 0, 0, QByteArray(65517, 'x'))}};

        row("ours, no frames", Pcapng::header(), R::Ok, {});
        const Packets four = Packets{{0, BoxFrame::build(0)}} + three;
        row("ours, every padding", written(four), R::Ok, four);
        row("ours, largest box frame", written(largest), R::Ok, largest);
        row("empty", QByteArray(), R::Truncated, {}, "empty");
        row("cut in a block's lengths", good.left(p3 + 6), R::Truncated, three.mid(0, 2), at3 + " after 2 frames");
        row("cut in a packet", good.chopped(3), R::Truncated, three.mid(0, 2), at3 + " after 2 frames");
        row("length below 12", patched(p2 + 4, 8), R::Damaged, three.mid(0, 1), at2 + " gives a length of 8 bytes");
        row("length not a multiple of 4", patched(p2 + 4, 46), R::Damaged, three.mid(0, 1), "length of 46 bytes");
        row("length past the end", patched(p3 + 4, 0xFFFFFFF0), R::Truncated, three.mid(0, 2), at3);
        row("trailing length differs", patched(p3 + 40, 48), R::Damaged, three.mid(0, 2), "ends with 48");
        row("captured length past the block", patched(p2 + 20, 0xFFFFFFFF), R::Damaged, three.mid(0, 1),
            "holds 4294967295 bytes");
        row("no section header first", good.mid(p2), R::Damaged, {}, "does not start with a section header");
        row("bad byte-order mark", patched(8, 0x4D3C2B2A), R::Damaged, {}, "byte-order");
        row("unknown blocks skipped",
            good.left(p2) + Blocks().block(0x0BAD, "custom").block(4, "names").out + good.mid(p2), R::Ok, three);
        row("foreign link type", Blocks().section(false).interface(1).packet(0, 5, "eth").out, R::ForeignLinkType, {},
            "link type 1 (Ethernet?) is not a Vendscope capture");
        row("foreign packets among ours skipped",
            Blocks().section(false).interface(147).interface(1).packet(1, 5, "eth").packet(0, 7, "ours").out,
            R::ForeignLinkType, {{7, "ours"}}, "1 packet skipped");
        row("big-endian section",
            Blocks().section(true).interface(147).packet(0, 1700000000123456, "one").packet(0, 3, "four").out, R::Ok,
            {{1700000000123456, "one"}, {3, "four"}});
        row("sections of both orders, interfaces numbered afresh",
            Blocks().section(false).interface(147).packet(0, 1, "le").section(true).interface(147).packet(0, 2, "be")
                .out,
            R::Ok, {{1, "le"}, {2, "be"}});
        row("interface of an earlier section",
            Blocks().section(false).interface(147).section(false).interface(147).packet(1, 1, "x").out, R::Damaged, {},
            "names interface 1");
        row("nanoseconds", Blocks().section(false).interface(147, 9).packet(0, 1700000000123456789, "ns").out, R::Ok,
            {{1700000000123456, "ns"}});
        row("milliseconds", Blocks().section(true).interface(147, 3).packet(0, 5, "ms").out, R::Ok, {{5000, "ms"}});
        row("seconds past the range", Blocks().section(false).interface(147, 0).packet(0, ~0ULL >> 8, "s").out,
            R::Damaged, {}, "time out of range");
        row("binary resolution", Blocks().section(false).interface(147, 0x86).out, R::Damaged, {}, "time resolution");
        row("past nanoseconds", Blocks().section(false).interface(147, 10).out, R::Damaged, {}, "time resolution");
        row("option past its block", Blocks().section(false).interface(147, 6, 200).out, R::Damaged, {},
            "option running past its end");
    }
    void read()
    {
        QFETCH(QByteArray, data);
        QFETCH(int, status);
        QFETCH(Packets, packets);
        QFETCH(QString, message);
        QCOMPARE(Pcapng::looksLikePcapng(data.constData(), data.size()), data.startsWith(hx("0A0D0D0A")));
        // An exact-size copy, so that the sanitizer sees any read past the end.
        const std::unique_ptr<char[]> exact(new char[size_t(data.size()) + 1]);
        std::memcpy(exact.get(), data.constData(), size_t(data.size()));
        Packets got;
        const Pcapng::Result r = readAll(QByteArray::fromRawData(exact.get(), data.size()), &got);
        QCOMPARE(int(r.status), status);
        QCOMPARE(r.packets, qint64(packets.size()));
        QCOMPARE(got, packets);
        QVERIFY2(message.isEmpty() ? r.message.isEmpty() : r.message.contains(message), qPrintable(r.message));
    }

    // What the recorder writes, as Wireshark's own tools read it.
    void independentReader()
    {
        const QString capinfos = QStandardPaths::findExecutable("capinfos");
        const QString tshark = QStandardPaths::findExecutable("tshark");
        if (capinfos.isEmpty() && tshark.isEmpty())
            QSKIP("neither capinfos nor tshark is installed");
        QTemporaryDir dir;
        CaptureRecorder recorder(dir.path());
        for (const auto &p : three)
            recorder.record(p.first, p.second);
        const QString path = recorder.currentFile();
        recorder.stop();
        const auto run = [&](const QString &tool, const QStringList &args) {
            QProcess p;
            p.start(tool, args);
            const bool ran = p.waitForFinished(60000) && p.exitCode() == 0;
            return ran ? QString::fromUtf8(p.readAllStandardOutput()) : QString();
        };
        if (!capinfos.isEmpty())
            QVERIFY2(run(capinfos, {"-c", "-E", "-M", "-T", path}).contains(path + "\tuser0\t3"), qPrintable(path));
        QString expected; // and tshark sees the same times and bytes
        for (const auto &p : three)
            expected += QString("%1.%2").arg(p.first / 1000000).arg(p.first % 1000000, 6, 10, QChar('0')) + "000\t"
                        + p.second.toHex() + '\n';
        if (!tshark.isEmpty())
            QCOMPARE(run(tshark, {"-r", path, "-T", "fields", "-e", "frame.time_epoch", "-e", "data.data"}), expected);
    }

    // A crash loses at most the last second.
    void writtenWithinASecond()
    {
        QTemporaryDir dir;
        CaptureRecorder recorder(dir.path());
        recorder.record(three[0].first, three[0].second);
        QCOMPARE(QFileInfo(recorder.currentFile()).size(), Pcapng::header().size());
        QTRY_COMPARE_WITH_TIMEOUT(fileData(recorder.currentFile()), written(three.mid(0, 1)), 2500);
    }

    void folderBound_data()
    {
        QTest::addColumn<QStringList>("existing"); // each one unit big
        QTest::addColumn<int>("starts");           // files started, one frame each
        QTest::addColumn<int>("extra");            // frames then recorded
        QTest::addColumn<double>("limit");         // in units
        QTest::addColumn<QStringList>("kept");     // of the existing files
        QTest::addColumn<int>("startedKept");      // the newest started files left; 0: rolled over
        QTest::addColumn<int>("rolledKept");       // files of the rollover left beside the current one
        const QString old = "capture_20000101_000000";
        QTest::newRow("within the limit nothing goes") << QStringList{old + ".pcapng"} << 2 << 0 << 10.0
                                                       << QStringList{old + ".pcapng"} << 2 << 0;
        QTest::newRow("oldest first, same-second numbers as numbers")
            << QStringList{old + "_10.pcapng", old + "_2.pcapng", old + ".pcapng", "capture_19991231_235959.pcapng"}
            << 1 << 0 << 2.5 << QStringList{old + "_10.pcapng"} << 1 << 0;
        QTest::newRow("several started, the oldest goes") << QStringList() << 3 << 0 << 2.5 << QStringList() << 2 << 0;
        QTest::newRow("a file past half the limit goes on in a new one, the one before stays")
            << QStringList{old + ".pcapng"} << 1 << 5 << 2.5 << QStringList() << 0 << 1; // rolls over twice
    }
    void folderBound()
    {
        QFETCH(QStringList, existing);
        QFETCH(int, starts);
        QFETCH(int, extra);
        QFETCH(double, limit);
        QFETCH(QStringList, kept);
        QFETCH(int, startedKept);
        QFETCH(int, rolledKept);
        const QByteArray frame = BoxFrame::build(BoxFrame::KindBusData, QByteArray(3992, 'x'));
        const qint64 unit = Pcapng::header().size() + frame.size() + 32; // a file of one frame
        QTemporaryDir dir;
        for (const QString &name : existing + QStringList{"notes.txt"}) {
            QFile f(dir.filePath(name));
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(QByteArray(name == "notes.txt" ? 10 * unit : unit, 'o'));
        }
        CaptureRecorder recorder(dir.path());
        recorder.setLimitBytes(qint64(limit * unit));
        QStringList started;
        const auto recordOne = [&](qint64 t) {
            recorder.record(t, frame);
            QVERIFY(recorder.flush());
            QVERIFY(QFile::exists(recorder.currentFile()));
            QVERIFY(captureBytes(dir.path()) <= qint64(limit * unit));
        };
        for (int i = 0; i < starts; ++i) {
            QVERIFY(recorder.start());
            started << QFileInfo(recorder.currentFile()).fileName();
            recordOne(i);
        }
        QCOMPARE(started.removeDuplicates(), qsizetype(0));
        for (int i = 0; i < extra; ++i)
            recordOne(100 + i);
        QVERIFY(QFile::exists(dir.filePath("notes.txt")));
        const QString current = QFileInfo(recorder.currentFile()).fileName();
        QCOMPARE(started.contains(current), startedKept > 0);
        const QStringList expected = kept + started.mid(starts - startedKept) + QStringList{current};
        const QStringList left = QDir(dir.path()).entryList({"capture_*.pcapng"}, QDir::Files);
        const QSet<QString> expectedSet(expected.begin(), expected.end());
        QVERIFY(QSet<QString>(left.begin(), left.end()).contains(expectedSet));
        QCOMPARE(left.size(), expectedSet.size() + rolledKept);

        recorder.stop();
        Packets packets; // the latest frame is in the current file
        QCOMPARE(readAll(fileData(dir.filePath(current)), &packets).status, Pcapng::Result::Ok);
        QCOMPARE(packets.last().first, qint64(extra ? 100 + extra - 1 : starts - 1));
    }

    void writeFailure_data()
    {
        QTest::addColumn<bool>("diskFull"); // else the folder cannot be made
        QTest::newRow("folder under a plain file") << false;
        QTest::newRow("disk full in the middle of a file") << true;
    }
    void writeFailure()
    {
        QFETCH(bool, diskFull);
        QTemporaryDir dir;
        QFile plain(dir.filePath("plain"));
        QVERIFY(plain.open(QIODevice::WriteOnly));
        CaptureRecorder recorder(diskFull ? dir.path() : dir.filePath("plain/captures"));
        QSignalSpy failed(&recorder, &CaptureRecorder::failed);
        rlimit saved{};
        getrlimit(RLIMIT_FSIZE, &saved);
        const auto previous = std::signal(SIGXFSZ, SIG_IGN);
        if (diskFull) {
            // A file size limit acts like a full disk, even for root.
            QVERIFY(recorder.start());
            rlimit small = saved;
            small.rlim_cur = 20000;
            setrlimit(RLIMIT_FSIZE, &small);
        }
        const QByteArray frame = busFrame(1, 2, 0, 0, QByteArray(1000, 'x'));
        for (int i = 0; i < 200; ++i)
            recorder.record(i, frame);
        setrlimit(RLIMIT_FSIZE, &saved);
        std::signal(SIGXFSZ, previous);
        QCOMPARE(failed.count(), 1);
        const QString reason = failed.at(0).at(0).toString();
        const QString why = diskFull ? qt_error_string(EFBIG) : "the capture folder " + dir.filePath("plain");
        QVERIFY2(reason.startsWith("cannot ") && reason.contains(why), qPrintable(reason));
        QVERIFY(recorder.hasFailed());
        QVERIFY(recorder.currentFile().isEmpty());
        QVERIFY(!recorder.flush());
        QCOMPARE(QDir(dir.path()).entryList({"capture_*"}).size(), int(diskFull));
        // start() tries again; here only the full disk has gone away.
        QCOMPARE(recorder.start(), diskFull);
        QCOMPARE(recorder.hasFailed(), !diskFull);
        QCOMPARE(failed.count(), diskFull ? 1 : 2);
    }

    void wiresharkExport()
    {
        // Three MDB transfers, then what is left out: VSI, a version frame, a stub.
        const Packets added = {{0, busFrame(1, 2, 0, 0, hx("0B010B00"))},               // POLL with its mode bit
                               {1700000000123456, busFrame(3, 4, 1, 0, hx("52005201"))}, // coin deposited
                               {1700000001000000, busFrame(5, 6, 2, 0, hx("000100"))},   // odd byte, other direction
                               {1700000002000000, busFrame(5, 6, 0, 1, hx("0B010B00"))},
                               {1700000003000000, versionFrame("v1.0")},
                               {1700000004000000, hx("A55A0012")}};
        const Packets expected = {
            {0, hx("00FF0B0B")}, {1700000000123456, hx("00FE5252")}, {1700000001000000, hx("00FE0000")}};
        QTemporaryDir dir;
        const QString path = dir.filePath("mdb.pcap");
        MdbExport out;
        QString error;
        QVERIFY(!out.open(dir.filePath("missing/mdb.pcap"), &error));
        QVERIFY2(error.contains("missing/mdb.pcap"), qPrintable(error));
        QVERIFY2(out.open(path, &error), qPrintable(error));
        for (const auto &p : added)
            out.add(p.first, p.second);
        QCOMPARE(out.packets(), qint64(expected.size()));
        QVERIFY(out.close(&error));
        quint32 magic = 0; // classic pcap with microseconds, in the writer's byte order
        std::memcpy(&magic, fileData(path).constData(), sizeof magic);
        QCOMPARE(magic, 0xA1B2C3D4);

        char pcapError[PCAP_ERRBUF_SIZE];
        pcap_t *in = pcap_open_offline(QFile::encodeName(path).constData(), pcapError);
        QVERIFY2(in, pcapError);
        const int linkType = pcap_datalink(in);
        pcap_pkthdr *header = nullptr;
        const u_char *bytes = nullptr;
        Packets got;
        while (pcap_next_ex(in, &header, &bytes) == 1)
            got.append({qint64(header->ts.tv_sec) * 1000000 + header->ts.tv_usec,
                        QByteArray(reinterpret_cast<const char *>(bytes), int(header->caplen))});
        pcap_close(in);
        QCOMPARE(linkType, 300);
        QCOMPARE(got, expected);
    }
};

QTEST_MAIN(TestCapture)
#include "tst_capture.moc"
