#ifndef INSIGHTMODEL_H
#define INSIGHTMODEL_H

#include "insight/businsight.h"

#include <QAbstractTableModel>

// One insight table as a read-only model; cells keep their types, so a
// sorted column sorts numbers as numbers.
class InsightModel : public QAbstractTableModel
{
public:
    using QAbstractTableModel::QAbstractTableModel;

    void setTable(BusInsight::Table table);
    const BusInsight::Table &table() const { return shown; }

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    BusInsight::Table shown;
};

#endif // INSIGHTMODEL_H
