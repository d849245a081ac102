// Rows of the details pane, changed one at a time so that a view keeps its selection and its place. GUI thread; called
// by DetailsPane and by the view.
#include "ui/DetailsModel.h"

#include "ui/Details.h"

#include <QFont>
#include <algorithm>
#include <cstddef>
#include <vector>

namespace zul::ui {

void DetailsModel::replace(const std::vector<Detail>& details) {
    beginResetModel();
    _details = details;
    endResetModel();
}

// The order of labels does not change, so it is enough to look forward: rows before the wanted label are gone.
void DetailsModel::update(const std::vector<Detail>& details) {
    const int rows = static_cast<int>(details.size());
    for (int row = 0; row < rows; ++row) {
        const Detail& detail = details[static_cast<std::size_t>(row)];
        const int found = rowOf(detail.label, row);
        if (found < 0) {
            insert(row, detail);
        } else {
            removeBetween(row, found);
            setValue(row, detail.value);
        }
    }
    removeBetween(rows, rowCount());
}

int DetailsModel::rowOf(const QString& wanted, int first) const {
    const auto found = std::ranges::find(_details.begin() + first, _details.end(), wanted, &Detail::label);
    return found == _details.end() ? -1 : static_cast<int>(found - _details.begin());
}

void DetailsModel::insert(int row, const Detail& detail) {
    beginInsertRows({}, row, row);
    _details.insert(_details.begin() + row, detail);
    endInsertRows();
}

void DetailsModel::removeBetween(int first, int end) {
    if (first >= end) return;
    beginRemoveRows({}, first, end - 1);
    _details.erase(_details.begin() + first, _details.begin() + end);
    endRemoveRows();
}

void DetailsModel::setValue(int row, const QString& text) {
    Detail& detail = _details[static_cast<std::size_t>(row)];
    if (detail.value == text) return;
    detail.value = text;
    Q_EMIT dataChanged(index(row, value), index(row, value));
}

int DetailsModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(_details.size());
}

int DetailsModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : columns;
}

QVariant DetailsModel::data(const QModelIndex& index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) return {};
    const Detail& detail = _details[static_cast<std::size_t>(index.row())];
    const bool isValue = index.column() == value;
    switch (role) {
    case Qt::DisplayRole:
    case Qt::AccessibleTextRole:
        return isValue ? detail.value : detail.label;
    case Qt::AccessibleDescriptionRole:
        return isValue ? detail.label : QString();
    case Qt::ToolTipRole:
        // Escaped: a tool tip interprets what looks like markup, which a printer's reply may contain.
        return isValue ? QVariant("<span>" + detail.value.toHtmlEscaped() + "</span>") : QVariant();
    case Qt::FontRole: {
        if (isValue) return {};
        QFont bold;
        bold.setBold(true);
        return bold;
    }
    default:
        return {};
    }
}

QVariant DetailsModel::headerData(int /*section*/, Qt::Orientation /*orientation*/, int /*role*/) const {
    return {};
}

} // namespace zul::ui
