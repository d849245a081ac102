// Builds the widgets of one alert from its description and redraws them when the desktop's colours or the screen's
// resolution change. GUI thread; AlertPresenter is the only caller.
#include "ui/AlertBox.h"

#include "Classes/Outlets.h"
#include "platform/dispatch/Queue.h"
#include "platform/foundation/KeyValueObserving.h"
#include "ui/ChangeRelay.h"
#include "ui/Pictures.h"
#include "ui/Texts.h"

#include <QAbstractButton>
#include <QCheckBox>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QScreen>
#include <QShortcut>
#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace zul::ui {

namespace {

constexpr int kPictureSize = 64;
constexpr int kTextWidth = 50; // in letters: a line length that reads well
constexpr int kTitleMargin = 5;
// A title wraps where it is wider than the smaller of these two: the toolkit limits a box to 1000 pixels, and to less
// on small screens.
constexpr int kShareOfScreen = 45; // per cent of its width
constexpr int kWidestTitle = 800;  // pixels

// The buttons of a box for the layout step of its alert. A child of the box, so that it follows the observed object for
// as long as the box exists.
class ButtonLayout final : public QObject, public AlertLayout {
  public:
    ButtonLayout(QObject& box, MainQueue& mainQueue, std::vector<QAbstractButton*> buttons)
        : QObject(&box), _mainQueue(mainQueue), _buttons(std::move(buttons)) {}

    std::size_t buttonCount() const override { return _buttons.size(); }
    void bindButtonEnabled(std::size_t button, const std::shared_ptr<KeyValueObservable>& object,
                           const std::string& keyPath, std::function<bool()> isEnabled) override {
        QAbstractButton* const bound = _buttons.at(button);
        bound->setEnabled(isEnabled());
        _relays.push_back(std::make_unique<ChangeRelay>(
            _mainQueue, object, keyPath, [bound, isEnabled](const std::string&) { bound->setEnabled(isEnabled()); }));
    }

  private:
    MainQueue& _mainQueue;
    const std::vector<QAbstractButton*> _buttons;
    std::vector<std::unique_ptr<ChangeRelay>> _relays;
};

// Styles draw the outline of a check box a little darker than the window: hardly visible on a light window, and
// invisible on a dark one.
QPalette paletteForCheckBox(QPalette palette) {
    constexpr int kStronger = 160; // per cent
    palette.setColor(QPalette::Window, isDark(palette) ? palette.color(QPalette::WindowText)
                                                       : palette.color(QPalette::Window).darker(kStronger));
    return palette;
}

} // namespace

AlertBox::AlertBox(const AlertDescription& alert, QWidget& window, MainQueue& mainQueue)
    : QMessageBox(&window), _window(window), _iconName(qtext(alert.iconName)), _style(alert.style) {
    setObjectName("alert");
    addTitleBar(alert.printerName.empty() ? window.windowTitle() : qtext(alert.printerName));
    setTextFormat(Qt::PlainText);
    setAccessibleName(qtext(alert.messageText));
    setAccessibleDescription(qtext(alert.informativeText));
    setText(qtext(alert.messageText));
    setInformativeText(qtext(alert.informativeText));
    styleTexts();
    // The window's own shortcuts do not work while an alert is shown, but it must always be possible to end the
    // program.
    connect(new QShortcut(QKeySequence("Ctrl+Q"), this), &QShortcut::activated, this, &AlertBox::quitAsked);
    addButtons(alert, mainQueue);
    if (alert.accessory) addCheckBox(alert.accessory);
    showLook();
}

void AlertBox::addTitleBar(const QString& title) {
    setWindowFlags(Qt::Dialog | Qt::FramelessWindowHint | Qt::CustomizeWindowHint);
    setWindowTitle(title); // for the task bar and screen readers
    _title = new QLabel(this);
    _title->setTextFormat(Qt::PlainText);
    _title->setText(title);
    _title->setMargin(kTitleMargin);
    _title->setAutoFillBackground(true);
    _title->setBackgroundRole(QPalette::Highlight);
    _title->setForegroundRole(QPalette::HighlightedText);
    setContentsMargins(1, _title->sizeHint().height() + 1, 1, 1);
}

// The toolkit wraps these texts early and interprets what looks like markup, which a printer's reply may contain.
void AlertBox::styleTexts() {
    const int width = fontMetrics().averageCharWidth() * kTextWidth;
    const int widest = std::min(screen()->availableGeometry().width() * kShareOfScreen / 100, kWidestTitle);
    for (const char* name : {"qt_msgbox_label", "qt_msgbox_informativelabel"}) {
        auto* const label = findChild<QLabel*>(name);
        if (label == nullptr) continue;
        const bool isTitle = qstrcmp(name, "qt_msgbox_label") == 0;
        QFont font = label->font();
        font.setBold(isTitle);
        label->setFont(font);
        label->setTextFormat(Qt::PlainText);
        label->setText(breakable(label->text()));
        // The toolkit gives a title only the width that the message below it needs. Here it stays in one line where the
        // screen is wide enough.
        label->setWordWrap(false);
        const int inOneLine = label->sizeHint().width();
        label->setWordWrap(true);
        label->setMinimumWidth(isTitle ? std::min(std::max(width, inOneLine), widest) : width);
    }
}

void AlertBox::addButtons(const AlertDescription& alert, MainQueue& mainQueue) {
    for (const std::string& title : alert.buttons) {
        // One role for all: the desktop's style would sort different roles in its own order.
        QPushButton* const button = addButton(qtext(title), QMessageBox::ActionRole);
        button->setAccessibleName(qtext(title));
        button->setAutoDefault(false); // otherwise Return would press the button with the focus, "Continue" included
        _buttons.push_back(button);
        if (_buttons.size() == 1) setDefaultButton(button);
        if (alert.escapeButton == _buttons.size() - 1) setEscapeButton(button);
    }
    if (!alert.layout) return;
    auto* const layout = new ButtonLayout(*this, mainQueue, _buttons);
    alert.layout(*layout);
}

void AlertBox::addCheckBox(const std::shared_ptr<CheckBox>& accessory) {
    auto* const check = new QCheckBox(qtext(accessory->title));
    check->setAccessibleName(qtext(accessory->title));
    check->setMinimumSize(accessory->width, accessory->height);
    check->setChecked(accessory->state == 1);
    setCheckBox(check);
    connect(check, &QCheckBox::toggled, this, [accessory](bool isChecked) {
        accessory->state = isChecked ? 1 : 0;
        if (accessory->action) accessory->action(*accessory);
    });
}

void AlertBox::showLook() {
    if (checkBox() != nullptr) checkBox()->setPalette(paletteForCheckBox(_window.palette()));
    const bool isCritical = _style == AlertStyle::critical;
    const QIcon picture = pictureNamed(_iconName, _window.palette());
    if (picture.isNull()) {
        setIcon(isCritical ? QMessageBox::Critical : QMessageBox::Warning);
        return;
    }
    const qreal ratio = _window.devicePixelRatioF();
    setIconPixmap(isCritical ? warningPicture(picture, kPictureSize, ratio)
                             : picture.pixmap(QSize(kPictureSize, kPictureSize), ratio));
}

int AlertBox::answer() const {
    const auto pressed = std::ranges::find(_buttons, clickedButton());
    return kAlertFirstButton + (pressed == _buttons.end() ? 0 : static_cast<int>(pressed - _buttons.begin()));
}

void AlertBox::resizeEvent(QResizeEvent* event) {
    QMessageBox::resizeEvent(event);
    _title->setGeometry(1, 1, width() - 2, _title->sizeHint().height());
}

void AlertBox::paintEvent(QPaintEvent* event) {
    QMessageBox::paintEvent(event);
    QPainter painter(this);
    painter.setPen(palette().color(QPalette::WindowText));
    painter.drawRect(rect().adjusted(0, 0, -1, -1));
}

} // namespace zul::ui
