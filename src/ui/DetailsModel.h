// The lines of the details pane as a table with two columns, label and value. GUI thread; DetailsPane fills it.
#pragma once

#include "ui/Details.h"

#include <QAbstractTableModel>
#include <vector>

namespace zul::ui {

class DetailsModel final : public QAbstractTableModel {
    Q_OBJECT

  public:
    enum Column { label, value, columns };

    using QAbstractTableModel::QAbstractTableModel;

    /// Shows the lines of another printer, or none: views lose their selection.
    void replace(const std::vector<Detail>& details);
    /// Shows new lines of the same printer. Lines with an unchanged label keep their row, so views keep their
    /// selection.
    void update(const std::vector<Detail>& details);

    /// How many lines there are; 0 for a valid parent, because a cell has no children.
    int rowCount(const QModelIndex& parent = {}) const override;
    /// Label and value; 0 for a valid parent.
    int columnCount(const QModelIndex& parent = {}) const override;
    /// What a view draws and what a screen reader reads: a value is described by its label. Tool tips show values only.
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    /// Always empty: the labels explain themselves.
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

  private:
    int rowOf(const QString& wanted, int first) const;
    void insert(int row, const Detail& detail);
    void removeBetween(int first, int end);
    void setValue(int row, const QString& text);

    std::vector<Detail> _details;
};

} // namespace zul::ui
