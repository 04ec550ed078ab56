// Bus insight: per-device statistics and the money timeline out of hand-made MDB traffic, directly and through
// vendscope-decode --stats / --money.
#include "testsupport.h"

#include "capture/pcapng.h"
#include "insight/businsight.h"

#include <ctime>

namespace {

struct Framed
{
    qint64 us;
    QByteArray frame;
};
using Frames = QList<Framed>;

constexpr qint64 base = 1795515300000000; // 2026-11-24 10:15:00 UTC

// One exchange a string: host milliseconds after base, then steps split by ';', each kind, tick gap, hex bytes.
// M a VMC command, S a peripheral's reply (both get their checksum), m and s the same with the bytes as given,
// A a peripheral's lone marked byte, V the VMC's unmarked one, X a VSI frame; "T hex" sets the tick counter.
// Step j of an exchange arrives j ms after it starts.
Frames frames(const QStringList &exchanges)
{
    Frames out;
    quint32 lastEnd = 0;
    for (const QString &exchange : exchanges) {
        if (exchange.startsWith('T')) {
            lastEnd = exchange.mid(2).toUInt(nullptr, 16);
            continue;
        }
        const qint64 ms = exchange.section(' ', 0, 0).toLongLong();
        const QStringList steps = exchange.section(' ', 1).split(';');
        for (int j = 0; j < steps.size(); ++j) {
            const QString step = steps[j].trimmed();
            const char kind = step.at(0).toLatin1();
            QByteArray data = QByteArray::fromHex(step.section(' ', 1).toLatin1());
            if (kind == 'M' || kind == 'S') {
                unsigned char sum = 0;
                for (char c : data)
                    sum = static_cast<unsigned char>(sum + static_cast<unsigned char>(c));
                data += char(sum);
            }
            const quint32 start = lastEnd + step.section(' ', 0, 0).mid(1).toUInt();
            lastEnd = start + 1 + 2 * quint32(data.size());
            const bool first = kind == 'M' || kind == 'm' || kind == 'A';
            const bool last = kind == 'S' || kind == 's';
            QByteArray bus;
            for (int i = 0; i < data.size(); ++i)
                bus += data.at(i) + QByteArray(1, char((first && i == 0) || (last && i == data.size() - 1)));
            const int direction = kind == 'S' || kind == 's' || kind == 'A';
            out.append({base + (ms + j) * 1000, kind == 'X' ? busFrame(start, lastEnd, 0, 1, data)
                                                            : busFrame(start, lastEnd, direction, 0, bus)});
        }
    }
    return out;
}

const char *const coinSetup = "03 1840 05 02 0007 01 02 05 0A 14 0000000000000000000000"; // x0.05, 2 decimals
const char *const billSetup = "01 1840 0064 02 01F4 0003 FF 01 05 0A 00000000000000000000000000"; // x1.00

// A machine's day in short: SETUPs, coins and bills in, three cashless sessions, payouts, a checksum error with
// its RET, a peripheral's NAK, a VMC NAK, a command to address 40, a minute later a vend left open, a VSI frame.
const QStringList session = {
    QStringLiteral("0 M3 09; S2 %1; V1 00").arg(coinSetup),
    QStringLiteral("3 M4 31; S3 %1; V1 00").arg(billSetup),
    "6 M2 11 00 03 10 02 01; A2 00; M2 12; S2 01 03 18 40 01 02 05 0F; V1 00",
    "100 M40 0B; S3 52 3D; V1 00",
    "200 M40 0B; S9 44 00; V1 00",
    "300 M40 33; S2 91; V1 00; M20 35 01; A2 00; M25 33; S2 81; V1 00",
    "400 M40 33; S2 90; V1 00; M20 35 00; A2 00; M25 33; S2 A0; V1 00",
    "500 M40 12; S2 03 01F4 00003039 01 0000; V1 00; M30 13 00 0096 000C; A2 00; M25 12; S2 05 0096; V1 00;"
    " M60 13 02 000C; A2 00; M25 13 04; A2 00; M25 12; S7 07; V1 00",
    "600 M40 12; S2 03 FFFF FFFFFFFF 01 0000; V1 00; M30 13 00 00FA 0007; A2 00; M25 12; S2 06; V1 00;"
    " M25 13 04; A2 00",
    "700 M40 12; S2 03 00C8 00000001 01 0000; V1 00; M30 13 00 0064 0003; S2 05 0064; V1 00; M40 13 03; A2 00;"
    " M25 13 04; A2 00",
    "800 M40 0D 12; A1 00; M25 0F 02 0A; A4 00",
    "900 M40 0B; s2 52 3E 8F; V1 AA; S5 52 3E; V1 00",
    "1000 M40 0B; A4 FF",
    "1100 M40 33; S2 82; V1 FF; M20 33; S2 82; V1 00",
    "1200 M20 40 01",
    "60300 M40 12; S2 03 0064 00000002 01 0000; V1 00; M30 13 00 0032 0005; A2 00",
    "60400 X0 4142",
};

void feed(BusInsight &insight, const Frames &all)
{
    for (const Framed &f : all)
        insight.addFrame(f.us, f.frame);
}

QString csv(const QStringList &lines)
{
    return lines.join("\r\n") + "\r\n";
}

// One column of the timeline (summary rows left out), or of the device rows (of the link rows for "link count").
QStringList column(const BusInsight::Table &table, const QString &name)
{
    const int at = int(table.header.indexOf(name));
    const bool link = name == "link count";
    QStringList out;
    for (const QVariantList &row : table.rows)
        if (row.last() != "summary" && (row.first() == "link") == link)
            out << row.at(at).toString();
    return out;
}

struct Run
{
    int code = -1;
    QByteArray out;
    QString err;
};

// A table as text rows, column `without` left out: the engine's, or what a dock's view shows.
QStringList rows(const BusInsight::Table &table, const QString &without)
{
    const int skip = int(table.header.indexOf(without));
    QStringList out;
    for (const QVariantList &row : table.rows) {
        QStringList cells;
        for (int c = 0; c < row.size(); ++c)
            if (c != skip)
                cells << row.at(c).toString();
        out << cells.join(',');
    }
    return out;
}

BusInsight::Table shown(const QTableView *view)
{
    const QAbstractItemModel *model = view->model();
    BusInsight::Table table;
    for (int c = 0; c < model->columnCount(); ++c)
        table.header << model->headerData(c, Qt::Horizontal).toString();
    for (int r = 0; r < model->rowCount(); ++r) {
        QVariantList row;
        for (int c = 0; c < model->columnCount(); ++c)
            row << model->data(model->index(r, c));
        table.rows << row;
    }
    return table;
}

Run decode(const QStringList &args)
{
    QProcess p;
    p.start(VS_DECODE, args);
    p.waitForFinished(30000);
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, p.readAllStandardOutput(),
            QString::fromUtf8(p.readAllStandardError())};
}

} // namespace

class TestInsight : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        // Host times in the tables are local; the expected ones are UTC (vendscope-decode inherits this).
        qputenv("TZ", "UTC");
        tzset();
    }

    void session()
    {
        BusInsight insight;
        feed(insight, frames(::session));
        insight.addFccError();
        insight.addFccError();
        insight.addNoise(7);
        insight.addWatchdogReopen();
        insight.addPortLost();

        QCOMPARE(toCsv(insight.statistics()), csv({
            "address,device,commands,replies,ACK,NAK,RET,checksum errors,late replies,gap min,gap median,gap max,"
            "last message,link count",
            "08,coin changer,7,8,6,1,1,1,1,1,3,9,2026-11-24 10:15:01.001,",
            "10,cashless #1,18,18,18,0,0,0,1,2,2,7,2026-11-24 10:16:00.304,",
            "30,bill validator,9,9,8,1,0,0,0,2,2,3,2026-11-24 10:15:01.105,",
            "40,other,1,0,0,0,0,0,0,,,,2026-11-24 10:15:01.200,",
            "link,box frames,,,,,,,,,,,,92",
            "link,FCC errors,,,,,,,,,,,,2",
            "link,noise bytes,,,,,,,,,,,,7",
            "link,watchdog reopens,,,,,,,,,,,,1",
            "link,port lost,,,,,,,,,,,,1",
            "link,MDB replies with no command before them,,,,,,,,,,,,0"}));
        // Counts are numbers, so a view sorts them as numbers.
        QCOMPARE(insight.statistics().rows.at(0).at(2).typeId(), QMetaType::LongLong);

        QCOMPARE(toCsv(insight.money()), csv({
            "#,time,device,event,amount,details,flag",
            "1,2026-11-24 10:15:00.101,coin changer,coin to tube,0.25,\"coin type 2, 61 in tube\",",
            "2,2026-11-24 10:15:00.201,coin changer,coin to cash box,1.00,\"coin type 4, 0 in tube\",",
            "3,2026-11-24 10:15:00.301,bill validator,bill escrowed,5.00,bill type 1,",
            "4,2026-11-24 10:15:00.306,bill validator,bill stacked,5.00,bill type 1,",
            "5,2026-11-24 10:15:00.401,bill validator,bill escrowed,1.00,bill type 0,",
            "6,2026-11-24 10:15:00.406,bill validator,bill returned,1.00,bill type 0,",
            "7,2026-11-24 10:15:00.501,cashless #1,begin session,5.00,,",
            "8,2026-11-24 10:15:00.503,cashless #1,vend request,1.50,item 12,",
            "9,2026-11-24 10:15:00.506,cashless #1,vend approved,1.50,,",
            "10,2026-11-24 10:15:00.508,cashless #1,vend success,1.50,item 12,",
            "11,2026-11-24 10:15:00.510,cashless #1,session complete,,,",
            "12,2026-11-24 10:15:00.513,cashless #1,end session,,,",
            "13,2026-11-24 10:15:00.601,cashless #1,begin session,,funds not yet known,",
            "14,2026-11-24 10:15:00.603,cashless #1,vend request,2.50,item 7,denied",
            "15,2026-11-24 10:15:00.606,cashless #1,vend denied,,,",
            "16,2026-11-24 10:15:00.608,cashless #1,session complete,,,",
            "17,2026-11-24 10:15:00.701,cashless #1,begin session,2.00,,",
            "18,2026-11-24 10:15:00.703,cashless #1,vend request,1.00,item 3,approved but failed",
            "19,2026-11-24 10:15:00.704,cashless #1,vend approved,1.00,,",
            "20,2026-11-24 10:15:00.706,cashless #1,vend failure,,,",
            "21,2026-11-24 10:15:00.708,cashless #1,session complete,,,",
            "22,2026-11-24 10:15:00.800,coin changer,coins paid out,0.25,DISPENSE 1 x coin type 2,",
            "23,2026-11-24 10:15:00.802,coin changer,coins paid out,0.50,PAYOUT,",
            "24,2026-11-24 10:15:00.903,coin changer,coin to tube,0.25,\"coin type 2, 62 in tube\",",
            "25,2026-11-24 10:15:01.104,bill validator,bill stacked,10.00,bill type 2,",
            "26,2026-11-24 10:16:00.301,cashless #1,begin session,1.00,,",
            "27,2026-11-24 10:16:00.303,cashless #1,vend request,0.50,item 5,\"requested, never ended\"",
            ",,,cash in,16.50,\"3 coins, 2 bills\",summary",
            ",,,cash out,0.75,2 payouts,summary",
            ",,,cashless sales,1.50,1 vend,summary",
            ",,,flagged vends,,\"1 denied, 1 failed, 1 never ended\",summary"}));

        // Polls move the statistics, not the money; clear() empties both and still bumps the revisions.
        const quint64 money = insight.moneyRevision();
        const quint64 all = insight.revision();
        feed(insight, frames({"0 M2 0B; A2 00"}));
        QCOMPARE(insight.moneyRevision(), money);
        QVERIFY(insight.revision() > all);
        insight.clear();
        QVERIFY(insight.moneyRevision() > money);
        QCOMPARE(column(insight.statistics(), "link count"), QStringList({"0", "0", "0", "0", "0", "0"}));
        QCOMPARE(insight.money().rows.size(), 4); // the summary alone
    }

    void edgeCases_data()
    {
        QTest::addColumn<QStringList>("exchanges");
        QTest::addColumn<int>("limit");
        QTest::addColumn<QString>("table");
        QTest::addColumn<QString>("column");
        QTest::addColumn<QStringList>("expected");
        const auto row = [](const char *name, const QStringList &exchanges, const char *table, const char *column,
                            const QStringList &expected, int limit = BusInsight::defaultTimelineLimit) {
            QTest::newRow(name) << exchanges << limit << table << column << expected;
        };
        row("a deposit and a price before any SETUP are unscaled",
            {"0 M2 0B; S2 52 3D; V1 00", "10 M2 13 00 0096 000C; A2 00"}, "money", "amount", {"unscaled", "150 unscaled"});
        row("a coin type beyond a short credit table has no value",
            {"0 M2 09; S2 03 1840 05 02 0007 01 02 05 0A 14; V1 00", "10 M2 0B; S2 49 00; V1 00"}, "money", "details",
            {"coin type 9 (no value in SETUP), 0 in tube"});
        row("a second SETUP's scaling applies to later events",
            {"0 M2 09; S2 03 1840 05 02 0007 01 02; V1 00", "10 M2 0B; S2 51 00; V1 00",
             "20 M2 09; S2 03 1840 01 00 0007 01 02; V1 00", "30 M2 0B; S2 51 00; V1 00"},
            "money", "amount", {"0.10", "2"});
        row("replies with no command before them", {"0 S2 52 3D; V1 00; A2 00"}, "stats", "link count",
            {"3", "0", "0", "0", "0", "2"});
        row("a gap across the tick counter's wrap", {"T FFFFFFF7", "0 M2 0B; A6 00"}, "stats", "gap max", {"6"});
        row("truncated messages are left out, never read past",
            {"0 M2 09; S2 03 18 40 05 02 00; V1 00", "10 M2 0B; S2 52; V1 00", "20 M2 12; S2 03 01; V1 00",
             "30 M2 12; S2 01 03 18; V1 00", "40 M2 13 00 00; A2 00", "50 M2 0D; A2 00", "60 M2 0F 02; A2 00",
             "70 M2 31; S2 01 1840 0064 02; V1 00", "80 M2 33; S2 81; V1 00"},
            "money", "details", {"coin type 2", "bill type 1"});
        row("a reply the VMC does not ACK is not taken",
            {"0 M2 0B; S2 52 3D; V1 FF; M2 0B; S2 52 3D; M2 0B; S2 52 3D; V1 00"}, "money", "#", {"1"});
        row("a full timeline drops its oldest rows", {"0 M2 0B; S2 52 3D; V1 00", "10 M2 0B; S2 52 3D; V1 00",
            "20 M2 0B; S2 52 3D; V1 00"}, "money", "#", {"2", "3"}, 2);
    }
    void edgeCases()
    {
        QFETCH(QStringList, exchanges);
        QFETCH(int, limit);
        QFETCH(QString, table);
        QFETCH(QString, column);
        BusInsight insight(limit);
        feed(insight, frames(exchanges));
        QTEST(::column(table == "money" ? insight.money() : insight.statistics(), column), "expected");
    }

    // The docks show what the engine gives for the same traffic: live through a pseudo-terminal (the host
    // times differ, so those columns are left out), and for a capture opened from disk, times and CSV save too.
    void docks()
    {
        writeSettingsIni();
        const Frames all = frames(::session);
        BusInsight direct;
        feed(direct, all);
        MainWindow w;
        w.show();
        QVERIFY(!w.ui->dockStatistics->isVisible() && !w.ui->dockMoney->isVisible());
        for (QAction *action : w.ui->menuView->actions())
            action->trigger();
        // Both open as tabs, the one opened last on top; a hidden tab catches up when it is raised.
        QVERIFY(!w.ui->dockStatistics->isHidden() && w.ui->dockMoney->isVisible());
        const auto raise = [&](QDockWidget *dock) {
            dock->raise();
            QVERIFY(waitUntil([&] { return dock->isVisible(); }));
        };

        Pty pty;
        connectTo(w, pty.slavePath());
        QByteArray bytes;
        for (const Framed &f : all)
            bytes += f.frame;
        pty.write(bytes);
        QVERIFY(waitUntil([&] { return shown(w.ui->tableMoney).rows.size() == direct.money().rows.size(); }));
        QCOMPARE(rows(shown(w.ui->tableMoney), "time"), rows(direct.money(), "time"));
        raise(w.ui->dockStatistics);
        QVERIFY(waitUntil([&] { return column(shown(w.ui->tableStatistics), "link count").value(0) == "92"; }));
        QCOMPARE(rows(shown(w.ui->tableStatistics), "last message"), rows(direct.statistics(), "last message"));

        // A click on a header sorts numbers as numbers.
        w.ui->tableStatistics->sortByColumn(2, Qt::DescendingOrder);
        QCOMPARE(column(shown(w.ui->tableStatistics), "commands"), QStringList({"18", "9", "7", "1"}));

        QTemporaryDir dir;
        QByteArray file = Pcapng::header();
        for (const Framed &f : all)
            Pcapng::appendPacket(file, f.us, f.frame);
        QFile capture(dir.filePath("day.pcapng"));
        QVERIFY(capture.open(QIODevice::WriteOnly) && capture.write(file) == file.size());
        capture.close();
        QVERIFY(w.showCapture(capture.fileName()));
        w.ui->tableStatistics->sortByColumn(-1, Qt::AscendingOrder);
        QCOMPARE(rows(shown(w.ui->tableStatistics), QString()), rows(direct.statistics(), QString()));
        raise(w.ui->dockMoney);
        QCOMPARE(rows(shown(w.ui->tableMoney), QString()), rows(direct.money(), QString()));
        QString error;
        QVERIFY2(w.saveInsight(MainWindow::InsightTable::Money, dir.filePath("money.csv"), &error), qPrintable(error));
        QFile saved(dir.filePath("money.csv"));
        QVERIFY(saved.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromUtf8(saved.readAll()), toCsv(direct.money()));

        // Clear starts a new live session: the figures start again.
        w.ui->actionClear->trigger();
        QVERIFY(waitUntil([&] { return shown(w.ui->tableMoney).rows.size() == 4; })); // the summary alone
    }

    void csvQuoting_data()
    {
        QTest::addColumn<QVariant>("cell");
        QTest::addColumn<QString>("field");
        QTest::newRow("plain text stays bare") << QVariant("coin to tube") << "coin to tube";
        QTest::newRow("a number") << QVariant(qint64(-12)) << "-12";
        QTest::newRow("a comma is quoted") << QVariant("a,b") << "\"a,b\"";
        QTest::newRow("quotes are doubled") << QVariant("say \"hi\"") << "\"say \"\"hi\"\"\"";
        QTest::newRow("a line feed is quoted") << QVariant("two\nlines") << "\"two\nlines\"";
        QTest::newRow("a carriage return is quoted") << QVariant("cr\r") << "\"cr\r\"";
        QTest::newRow("an empty field") << QVariant(QString()) << "";
    }
    void csvQuoting()
    {
        QFETCH(QVariant, cell);
        QFETCH(QString, field);
        BusInsight::Table table{{"h", "x,y"}, {{cell, "z"}}};
        QCOMPARE(toCsv(table), "h,\"x,y\"\r\n" + field + ",z\r\n");
    }

    // The command line gives what the engine gives: from a capture with host times, or from a raw dump (no times)
    // whose one bad frame is an FCC error.
    void commandLine_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<bool>("raw");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("expected"); // stats, money, both; or what stderr says
        QTest::newRow("money") << QStringList{"--money"} << false << 0 << "money";
        QTest::newRow("stats") << QStringList{"--stats"} << false << 0 << "stats";
        QTest::newRow("both, stats first") << QStringList{"--money", "--stats"} << false << 0 << "both";
        QTest::newRow("raw dump with a bad frame") << QStringList{"--stats", "--money"} << true << 0 << "both";
        QTest::newRow("--html refused") << QStringList{"--stats", "--html"} << false << 2 << "--html";
        QTest::newRow("a flag given a value") << QStringList{"--money=all"} << false << 2 << "Unexpected value";
    }
    void commandLine()
    {
        QFETCH(QStringList, args);
        QFETCH(bool, raw);
        QFETCH(int, code);
        QFETCH(QString, expected);
        const Frames all = frames(::session);
        BusInsight direct;
        QByteArray file = raw ? QByteArray() : Pcapng::header();
        for (const Framed &f : all) {
            direct.addFrame(raw ? 0 : f.us, f.frame);
            raw ? void(file += f.frame) : Pcapng::appendPacket(file, f.us, f.frame);
        }
        if (raw) {
            QByteArray bad = all.first().frame;
            bad[bad.size() - 3] = char(bad.at(bad.size() - 3) ^ 1);
            file += bad;
            direct.addFccError();
        }
        QTemporaryDir dir;
        QFile out(dir.filePath("input"));
        QVERIFY(out.open(QIODevice::WriteOnly));
        out.write(file);
        out.close();

        const Run run = decode(args + QStringList{out.fileName()});
        QCOMPARE(run.code, code);
        if (code != 0) {
            QVERIFY2(run.err.contains(expected), qPrintable(run.err));
            QVERIFY(run.out.isEmpty());
            return;
        }
        const QString stats = toCsv(direct.statistics());
        const QString money = toCsv(direct.money());
        QCOMPARE(QString::fromUtf8(run.out), expected == "stats" ? stats : expected == "money" ? money
                                                                                    : stats + "\r\n" + money);
    }
};

QTEST_MAIN(TestInsight)
#include "tst_insight.moc"
