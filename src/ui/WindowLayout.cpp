// Reads and writes the layout of the main window in the user defaults. GUI thread: MainWindow restores it before it is
// shown, and WindowProgram has it written when the program ends.
#include "ui/WindowLayout.h"

#include "platform/foundation/UserDefaults.h"
#include "ui/PaneRoom.h"
#include "ui/PrinterTableModel.h"

#include <QHeaderView>
#include <QMainWindow>
#include <QScreen>
#include <algorithm>
#include <array>
#include <cstddef>

namespace zul::ui {

namespace {

constexpr int kDesktopMargin = 40; // pixels that a desktop may need at the sides of a window
// Keys of the user defaults.
constexpr const char* kColumnsKey = "windowPrinterColumns";
constexpr const char* kGeometryKey = "windowGeometry";
constexpr const char* kSplitterKey = "windowSplitter";

QByteArray rememberedState(const UserDefaults& defaults, const char* key) {
    return QByteArray::fromBase64(QByteArray::fromStdString(defaults.stringForKey(key).value_or("")));
}

} // namespace

WindowLayout::WindowLayout(QMainWindow& window, QHeaderView& columns, PaneRoom& panes, UserDefaults& defaults)
    : _window(window), _columns(columns), _panes(panes), _defaults(defaults) {}

void WindowLayout::restore(int leastWidth) {
    restoreColumns();
    if (!_window.restoreGeometry(rememberedState(_defaults, kGeometryKey))) {
        const int widest = _window.screen()->availableGeometry().width() - kDesktopMargin;
        _window.resize(std::min(std::max(_window.width(), leastWidth), widest), _window.height());
    }
    _panes.restore(rememberedState(_defaults, kSplitterKey));
}

void WindowLayout::restoreColumns() {
    if (_columns.restoreState(rememberedState(_defaults, kColumnsKey))) return;
    constexpr std::array<int, PrinterTableModel::columns> kWidths = {60, 200, 100, 105, 150, 105, 135, 160, 120, 130};
    for (int column = 0; column < PrinterTableModel::columns; ++column) {
        _columns.resizeSection(column,
                               std::max(kWidths[static_cast<std::size_t>(column)], _columns.sectionSizeHint(column)));
    }
    _columns.hideSection(PrinterTableModel::status); // the state says what matters of it; the header's menu shows it
}

void WindowLayout::remember() {
    const auto write = [this](const char* key, const QByteArray& state) {
        _defaults.setString(key, state.toBase64().toStdString());
    };
    write(kSplitterKey, _panes.state());
    write(kGeometryKey, _window.saveGeometry());
    write(kColumnsKey, _columns.saveState());
}

} // namespace zul::ui
