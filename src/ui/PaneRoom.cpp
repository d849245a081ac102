// The heights of the panes of the main window. GUI thread: UpdatePanel reports when its cards need another height, the
// splitter reports when the operator moves it, and WindowLayout restores and saves the state.
#include "ui/PaneRoom.h"

#include "ui/UpdatePanel.h"

#include <algorithm>

namespace zul::ui {

namespace {

constexpr int kLeastHeight = 90; // of a pane: one row of the table, or a few lines of the details, with their frame

} // namespace

PaneRoom::PaneRoom(QSplitter& splitter, UpdatePanel& updates, QWidget& details)
    : _splitter(splitter), _updates(updates), _details(details) {
    for (int pane = 0; pane < _splitter.count(); ++pane) {
        if (_splitter.widget(pane) != &_updates) _splitter.widget(pane)->setMinimumHeight(kLeastHeight);
    }
    connect(&_updates, &UpdatePanel::roomChanged, this, &PaneRoom::noteSizes);
    // Queued, because the cards must be laid out first.
    connect(&_updates, &UpdatePanel::roomChanged, this, &PaneRoom::makeRoom, Qt::QueuedConnection);
    connect(&_splitter, &QSplitter::splitterMoved, this, [this] { _isSplitByHand = !_updates.isHidden(); });
}

void PaneRoom::restore(const QByteArray& state) {
    if (!_splitter.restoreState(state)) _splitter.setSizes({220, 220, 240});
}

QByteArray PaneRoom::state() {
    giveBack();
    // Without the room of the updates, which are not there at the next start.
    return _splitter.saveState();
}

// Not while the details are hidden because no printer is attached: their height is not known then, and the updates have
// enough room.
void PaneRoom::noteSizes() {
    if (_isSplitByHand || !_sizesBefore.isEmpty() || _updates.isHidden() || _details.isHidden()) return;
    _sizesBefore = _splitter.sizes();
}

// Each visible pane gives in proportion to what it has above its least height.
void PaneRoom::makeRoom() {
    if (_updates.isHidden()) {
        giveBack();
        return;
    }
    QList<int> sizes = _splitter.sizes();
    const qsizetype panel = _splitter.indexOf(&_updates);
    const int lacking = _updates.wantedHeight() - sizes[panel];
    if (_isSplitByHand || _sizesBefore.isEmpty() || lacking <= 0) return;
    int spare = 0;
    for (qsizetype i = 0; i < sizes.size(); ++i) {
        if (i != panel) spare += std::max(sizes[i] - kLeastHeight, 0);
    }
    const int given = std::min(lacking, spare);
    for (qsizetype i = 0; i < sizes.size() && spare > 0; ++i) {
        if (i == panel) continue;
        if (_splitter.widget(static_cast<int>(i))->isHidden()) {
            sizes[i] = _sizesBefore.value(i);
        } else {
            sizes[i] -= (given * std::max(sizes[i] - kLeastHeight, 0) + spare - 1) / spare;
        }
    }
    sizes[panel] += given;
    _splitter.setSizes(sizes);
}

void PaneRoom::giveBack() {
    if (!_sizesBefore.isEmpty() && !_isSplitByHand) _splitter.setSizes(_sizesBefore);
    _sizesBefore.clear();
    _isSplitByHand = false;
}

} // namespace zul::ui
