// The View menu's two docks: per-device statistics and the money timeline,
// for the live traffic or for the capture on view.
#include "app/insightmodel.h"
#include "app/mainwindow.h"
#include "insight/businsight.h"
#include "ui_mainwindow.h"

#include <QDockWidget>
#include <QFile>
#include <QFileInfo>
#include <QHeaderView>
#include <QMessageBox>
#include <QSaveFile>
#include <QSortFilterProxyModel>
#include <QStatusBar>
#include <QTableView>
#include <QTimer>

void InsightModel::setTable(BusInsight::Table table)
{
    beginResetModel();
    shown = std::move(table);
    endResetModel();
}

int InsightModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(shown.rows.size());
}

int InsightModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(shown.header.size());
}

QVariant InsightModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= shown.rows.size())
        return {};
    const QVariantList &row = shown.rows.at(index.row());
    if (index.column() >= row.size())
        return {};
    const QVariant &cell = row.at(index.column());
    if (role == Qt::DisplayRole)
        return cell;
    if (role == Qt::TextAlignmentRole && cell.typeId() != QMetaType::QString)
        return int(Qt::AlignRight | Qt::AlignVCenter);
    return {};
}

QVariant InsightModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (role != Qt::DisplayRole || orientation != Qt::Horizontal || section >= shown.header.size())
        return QAbstractTableModel::headerData(section, orientation, role);
    return shown.header.at(section);
}

namespace {

void setUpTable(QTableView *view, InsightModel *model)
{
    auto *proxy = new QSortFilterProxyModel(view);
    proxy->setSourceModel(model);
    view->setModel(proxy);
    view->verticalHeader()->hide();
    view->verticalHeader()->setDefaultSectionSize(view->fontMetrics().height() + 6);
    view->setWordWrap(false);
    view->horizontalHeader()->setStretchLastSection(true);
    view->sortByColumn(-1, Qt::AscendingOrder); // the engine's own order until the user picks a column
}

} // namespace

void MainWindow::setUpInsight()
{
    insight = new BusInsight;
    statisticsModel = new InsightModel(this);
    moneyModel = new InsightModel(this);
    setUpTable(ui->tableStatistics, statisticsModel);
    setUpTable(ui->tableMoney, moneyModel);

    // One tab each below the view, so each table gets the window's width;
    // they can be dragged apart.
    tabifyDockWidget(ui->dockStatistics, ui->dockMoney);
    for (QDockWidget *dock : {ui->dockStatistics, ui->dockMoney}) {
        ui->menuView->addAction(dock->toggleViewAction());
        dock->hide();
        connect(dock->toggleViewAction(), &QAction::triggered, dock, [dock](bool on) {
            if (on)
                dock->raise();
        });
        connect(dock, &QDockWidget::visibilityChanged, this, [this](bool visible) {
            if (visible)
                refreshInsight();
        });
    }
    ui->dockStatistics->toggleViewAction()->setText(QStringLiteral("Statistics"));
    ui->dockMoney->toggleViewAction()->setText(QStringLiteral("Money"));

    connect(ui->buttonSaveStatistics, &QPushButton::clicked, this,
            [this] { saveInsightFile(InsightTable::Statistics); });
    connect(ui->buttonSaveMoney, &QPushButton::clicked, this, [this] { saveInsightFile(InsightTable::Money); });

    // Live figures at most twice a second; a busy bus changes them every frame.
    insightTimer = new QTimer(this);
    insightTimer->setInterval(500);
    connect(insightTimer, &QTimer::timeout, this, &MainWindow::refreshInsight);
    insightTimer->start();
}

const BusInsight &MainWindow::shownInsight() const
{
    return captureInsight ? *captureInsight : *insight;
}

void MainWindow::refreshInsight()
{
    const BusInsight &source = shownInsight();
    if (ui->dockStatistics->isVisible() && source.statisticsRevision() != shownStatisticsRevision) {
        shownStatisticsRevision = source.statisticsRevision();
        statisticsModel->setTable(source.statistics());
        ui->tableStatistics->resizeColumnsToContents();
    }
    if (ui->dockMoney->isVisible() && source.moneyRevision() != shownMoneyRevision) {
        shownMoneyRevision = source.moneyRevision();
        moneyModel->setTable(source.money());
        ui->tableMoney->resizeColumnsToContents(); // looks at the first thousand rows only
    }
}

void MainWindow::showInsightOf(BusInsight *fromCapture)
{
    captureInsight.reset(fromCapture);
    // A revision the sources cannot have: the next refresh redraws both.
    shownStatisticsRevision = shownMoneyRevision = ~quint64(0);
    refreshInsight();
}

bool MainWindow::saveInsight(InsightTable which, const QString &path, QString *error) const
{
    const BusInsight &source = shownInsight();
    const QByteArray csv = toCsv(which == InsightTable::Statistics ? source.statistics() : source.money()).toUtf8();
    QSaveFile out(path);
    if (!out.open(QIODevice::WriteOnly) || out.write(csv) != csv.size() || !out.commit()) {
        *error = QStringLiteral("Cannot write %1: %2").arg(path, out.errorString());
        return false;
    }
    return true;
}

void MainWindow::saveInsightFile(InsightTable which)
{
    const bool statistics = which == InsightTable::Statistics;
    const QString name = statistics ? QStringLiteral("statistics") : QStringLiteral("money");
    const QString caption = statistics ? QStringLiteral("Save Statistics") : QStringLiteral("Save Money");
    const QString path = askSavePath(caption, logPath + "/" + name + ".csv", QStringLiteral("CSV (*.csv)"),
                                     QLatin1String(".csv"));
    QString error;
    if (path.isEmpty())
        return;
    if (saveInsight(which, path, &error))
        statusBar()->showMessage(QStringLiteral("%1 saved to %2").arg(caption.mid(5), path));
    else
        QMessageBox::warning(this, caption, error);
}
