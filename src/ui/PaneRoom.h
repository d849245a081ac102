// Divides the height of the main window between its panes: table, updates and details. GUI thread; MainWindow owns it.
#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QSplitter>

namespace zul::ui {

class UpdatePanel;

/// Gives the updates the height that their cards need, as far as the other panes can spare it, and gives it back when
/// the last card is closed. Changes nothing while updates are shown after the operator has moved the splitter.
class PaneRoom final : public QObject {
    Q_OBJECT

  public:
    /// updates and details are panes of the splitter. Sets the least height of all panes but the updates.
    PaneRoom(QSplitter& splitter, UpdatePanel& updates, QWidget& details);

    /// Divides the height as state() returned it in an earlier run; about equally if the state is empty or invalid.
    void restore(const QByteArray& state);
    /// How the height is divided while there are no updates. Ends the room that updates have now.
    QByteArray state();

  private:
    void noteSizes();
    void makeRoom();
    void giveBack();

    QSplitter& _splitter;
    UpdatePanel& _updates;
    QWidget& _details;
    QList<int> _sizesBefore; // heights of the panes before updates were shown; empty: not known
    bool _isSplitByHand = false;
};

} // namespace zul::ui
