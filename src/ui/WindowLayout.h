// What the main window remembers from one start to the next: its place and size, the columns of the table, and the
// heights of its panes. GUI thread, which is the main queue's; MainWindow owns it.
#pragma once

class QHeaderView;
class QMainWindow;

namespace zul {
class UserDefaults;
}

namespace zul::ui {

class PaneRoom;

class WindowLayout {
  public:
    /// columns: the header of the table. All of these must outlive the layout.
    WindowLayout(QMainWindow& window, QHeaderView& columns, PaneRoom& panes, UserDefaults& defaults);

    /// Restores what the user defaults hold. At the first start the window is at least leastWidth pixels wide, as far
    /// as the screen has room for that, and each column as wide as its title, which must be in the operator's language
    /// by now.
    void restore(int leastWidth);
    /// Writes the layout to the user defaults.
    void remember();

  private:
    void restoreColumns();

    QMainWindow& _window;
    QHeaderView& _columns;
    PaneRoom& _panes;
    UserDefaults& _defaults;
};

} // namespace zul::ui
