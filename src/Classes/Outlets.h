// The program as the engine sees it: what it talks to when it asks the operator, shows the list or ends. A window and a
// command line each implement these; the engine knows neither. All calls are made on the main queue.
#pragma once

#include "Classes/AlertKind.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zul {

class KeyValueObservable;
class TBUSBPrinterZUL;

// ---- alerts -------------------------------------------------------------------------------------------------------

constexpr int kAlertFirstButton = 1000;  // answer: the first button, which is the default button
constexpr int kAlertSecondButton = 1001; // answer: the second button

enum class AlertStyle : int { warning = 0, critical = 2 };
enum class ButtonType : int { switchButton = 3 }; // a check box

/// A check box inside an alert. state is 1 (on) or 0 (off); the presenter sets it and then calls action.
struct CheckBox {
    int x = 0, y = 0, width = 0, height = 0;
    std::string title;
    ButtonType type = ButtonType::switchButton;
    int state = 0;
    std::function<void(CheckBox& sender)> action; // may be empty
};

/// The alert as it is on the screen, for the layout step.
class AlertLayout {
  public:
    virtual ~AlertLayout() = default;
    /// How many of the alert's buttons the presenter has made; indices below are those of AlertDescription::buttons.
    virtual std::size_t buttonCount() const = 0;
    /// Enables the button exactly while isEnabled answers true; asked again at each change of keyPath on object.
    virtual void bindButtonEnabled(std::size_t button, const std::shared_ptr<KeyValueObservable>& object,
                                   const std::string& keyPath, std::function<bool()> isEnabled) = 0;
};

/// Everything that a presenter needs to build and show one alert. Plain data, made on any thread.
struct AlertDescription {
    AlertKind kind = AlertKind::other;
    std::string messageText = {};          // the title, in bold
    std::string informativeText = {};      // may be empty
    std::vector<std::string> buttons = {}; // in order; the first is the default button; never empty when shown
    std::size_t harmlessButton = 0;        // index of the button that starts no operation
    /// Index of the button that Escape presses; nullopt: Escape has no effect.
    std::optional<std::size_t> escapeButton = {};
    AlertStyle style = AlertStyle::warning;
    std::string iconName = {};                           // picture of the printer; empty when there is none
    std::shared_ptr<CheckBox> accessory = {};            // may be null
    std::function<void(AlertLayout& alert)> layout = {}; // called once when the buttons exist; may be empty
    std::function<void(int answer)> completion = {};     // kAlertFirstButton …; may be empty; main queue
    std::shared_ptr<CheckBox> suppression = {};          // "do not ask again", where there is one
    bool isSuppressionHidden = true;
    bool isModal = false;         // application-modal; otherwise a sheet on the main window
    std::string printerKey = {};  // which printer asks (keyUSBdevice)
    std::uint32_t attachment = 0; // token of the service that the printer object was made for; 0: no object asks
    std::string printerName = {}; // how it is called (model, serial number, location)
};

class AlertOutlet {
  public:
    virtual ~AlertOutlet() = default;
    /// Shows the alert when its turn comes and calls the completion with the answer. Returns at once.
    virtual void beginAlert(AlertDescription alert) = 0;
};

// ---- application, menu, window, table -----------------------------------------------------------------------------

class TBPrinters;

class ApplicationOutlet {
  public:
    virtual ~ApplicationOutlet() = default;
    virtual void setDelegate(TBPrinters* delegate) = 0; // asked before the end; null: none
    /// Asks the delegate (applicationShouldTerminate:) and ends the application's loop.
    virtual void terminate() = 0;
    virtual std::string processName() const = 0; // for menus and the title
};

struct Menu;
struct MenuItem {
    std::string title;
    std::string toolTip; // empty: none
    bool isSeparator = false;
    std::shared_ptr<Menu> submenu;
};
struct Menu {
    std::string title;
    std::vector<MenuItem> items;
};

class WindowOutlet {
  public:
    virtual ~WindowOutlet() = default;
    virtual std::string title() const = 0;               // as shown
    virtual void setTitle(const std::string& title) = 0; // translated already
};

/// The table of printers. selectRow on the selected row must not call the selection handler again.
class TableOutlet {
  public:
    virtual ~TableOutlet() = default;
    /// Rows and columns are numbered from 0, in the order in which they are shown.
    virtual int numberOfRows() const = 0;
    virtual int selectedRow() const = 0; // -1: none
    virtual void selectRow(int row) = 0; // not extending
    virtual std::size_t numberOfColumns() const = 0;
    /// The controller reads each title, translates it and sets it; column is below numberOfColumns().
    virtual std::string columnTitle(std::size_t column) const = 0;
    virtual void setColumnTitle(std::size_t column, const std::string& title) = 0;
    /// Redraws the table after the titles have changed.
    virtual void setNeedsDisplay() = 0;
};

class ArrayControllerOutlet {
  public:
    virtual ~ArrayControllerOutlet() = default;
    virtual void setPreservesSelection(bool preserves) = 0;   // over changes of the list
    virtual void setAvoidsEmptySelection(bool avoids) = 0;    // one is selected while there is any
    virtual void setSelectsInsertedObjects(bool selects) = 0; // a new one becomes the selection
    /// Selects these objects and mirrors that to the table without calling its selection handler.
    virtual void setSelectedObjects(const std::vector<std::shared_ptr<TBUSBPrinterZUL>>& objects) = 0;
};

} // namespace zul
