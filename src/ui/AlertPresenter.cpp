#include "ui/AlertPresenter.h"

#include "ui/ChangeRelay.h"
#include "ui/Pictures.h"
#include "ui/Texts.h"

#include <QAbstractButton>
#include <QCheckBox>
#include <QEvent>
#include <QLabel>
#include <QMessageBox>
#include <QPainter>
#include <QPushButton>
#include <QScreen>
#include <QShortcut>
#include <algorithm>
#include <utility>

namespace zul::ui {

namespace {

constexpr int kPictureSize = 64;
constexpr int kTextWidth = 50; // in letters: lines that read well
constexpr int kTitleMargin = 5;
// Titles wrap beyond the smaller of both: the toolkit lets its boxes grow to 1000 pixels, and to less on small screens.
constexpr int kShareOfScreen = 45; // per cent of its width
constexpr int kWidestTitle = 800;  // pixels

// A box without the desktop's frame, as every alert is answered by one of its buttons and desktops put a close box into
// frames even where they are asked not to. Its own title says which printer it is about: several may be at work.
class Sheet final : public QMessageBox {
  public:
    Sheet(QWidget* parent, const QString& title) : QMessageBox(parent), _title(new QLabel(this)) {
        setWindowFlags(Qt::Dialog | Qt::FramelessWindowHint | Qt::CustomizeWindowHint);
        setWindowTitle(title); // for the task bar and screen readers
        _title->setTextFormat(Qt::PlainText);
        _title->setText(title);
        _title->setMargin(kTitleMargin);
        _title->setAutoFillBackground(true);
        _title->setBackgroundRole(QPalette::Highlight);
        _title->setForegroundRole(QPalette::HighlightedText);
        setContentsMargins(1, _title->sizeHint().height() + 1, 1, 1);
    }

  protected:
    void resizeEvent(QResizeEvent* event) override {
        QMessageBox::resizeEvent(event);
        _title->setGeometry(1, 1, width() - 2, _title->sizeHint().height());
    }
    void paintEvent(QPaintEvent* event) override {
        QMessageBox::paintEvent(event);
        QPainter painter(this);
        painter.setPen(palette().color(QPalette::WindowText));
        painter.drawRect(rect().adjusted(0, 0, -1, -1));
    }

  private:
    QLabel* const _title;
};

} // namespace

// The buttons of a box that is about to be shown. Kept by the box, because it follows an observed fact as long as the
// box stands.
class AlertPresenter::Layout final : public QObject, public AlertLayout {
  public:
    Layout(QMessageBox& box, MainQueue& mainQueue, std::vector<QAbstractButton*> buttons)
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

void AlertPresenter::setWindow(QWidget* window, MainQueue& mainQueue) {
    _window = window;
    _mainQueue = &mainQueue;
    _window->installEventFilter(this);
    showNext();
}

// A desktop may hand the focus to the window behind an alert, when another alert closes; the keyboard would then lead
// nowhere.
bool AlertPresenter::eventFilter(QObject* object, QEvent* event) {
    if (object != _window) return false;
    if (event->type() == QEvent::WindowActivate && !_standing.empty() && _standing.back().box->isVisible()) {
        _standing.back().box->raise();
        _standing.back().box->activateWindow();
    }
    const bool isOtherLook = event->type() == QEvent::PaletteChange || event->type() == QEvent::ScreenChangeInternal;
    if (isOtherLook) {
        for (const Standing& one : _standing) showLook(*one.box, one.alert);
    }
    return false;
}

void AlertPresenter::beginAlert(AlertDescription alert) {
    if (alert.isModal && _window) {
        show(std::move(alert));
        return;
    }
    _waiting.push_back(std::move(alert));
    showNext();
}

void AlertPresenter::dismissAll() {
    _waiting.clear();
    for (const Standing& one : std::exchange(_standing, {})) {
        one.box->disconnect(this);
        delete one.box;
    }
}

// One at a time, and never before an application-modal alert: a sheet would take its keyboard and its clicks.
void AlertPresenter::showNext() {
    if (!_standing.empty() || _waiting.empty() || !_window) return;
    AlertDescription next = std::move(_waiting.front());
    _waiting.pop_front();
    show(std::move(next));
}

void AlertPresenter::show(AlertDescription alert) {
    QMessageBox* const box = makeBox(alert);
    connect(box, &QDialog::finished, this, [this, box] { finish(box); });
    // Never exec(): a sheet must not hold up the main queue, whose blocks may belong to another printer's update.
    if (alert.isModal) {
        box->setModal(true);
        box->show();
    } else {
        box->open();
    }
    _standing.push_back({box, std::move(alert)});
}

void AlertPresenter::finish(QMessageBox* box) {
    const auto found = std::ranges::find(_standing, box, &Standing::box);
    if (found == _standing.end()) return;
    const AlertDescription alert = std::move(found->alert);
    _standing.erase(found);
    const auto buttons = box->buttons();
    const int pressed = static_cast<int>(std::max<qsizetype>(buttons.indexOf(box->clickedButton()), 0));
    box->deleteLater();
    if (alert.completion) alert.completion(kAlertFirstButton + pressed);
    showNext();
}

// ---- the box --------------------------------------------------------------------------------------------------------

namespace {

// A long path has no blanks to break a line at: it may be broken after every folder. For the eye only.
QString breakable(QString text) {
    return text.replace('/', "/\u200b");
}

// The toolkit's box has no title of its own, wraps early, and takes what looks like markup for such: a printer's answer
// may.
void styleTexts(QMessageBox& box) {
    const int width = box.fontMetrics().averageCharWidth() * kTextWidth;
    const int widest = std::min(box.screen()->availableGeometry().width() * kShareOfScreen / 100, kWidestTitle);
    for (const char* name : {"qt_msgbox_label", "qt_msgbox_informativelabel"}) {
        auto* const label = box.findChild<QLabel*>(name);
        if (label == nullptr) continue;
        const bool isTitle = qstrcmp(name, "qt_msgbox_label") == 0;
        QFont font = label->font();
        font.setBold(isTitle);
        label->setFont(font);
        label->setTextFormat(Qt::PlainText);
        label->setText(breakable(label->text()));
        // The toolkit gives a title no more room than the message below it needs. It stays in one line where the
        // screen is wide enough.
        label->setWordWrap(false);
        const int inOneLine = label->sizeHint().width();
        label->setWordWrap(true);
        label->setMinimumWidth(isTitle ? std::min(std::max(width, inOneLine), widest) : width);
    }
}

} // namespace

QMessageBox* AlertPresenter::makeBox(const AlertDescription& alert) {
    const QString title = alert.printerName.empty() ? _window->windowTitle() : qtext(alert.printerName);
    auto* const box = new Sheet(_window, title);
    box->setObjectName("alert");
    box->setTextFormat(Qt::PlainText);
    box->setAccessibleName(qtext(alert.messageText));
    box->setAccessibleDescription(qtext(alert.informativeText));
    box->setText(qtext(alert.messageText));
    box->setInformativeText(qtext(alert.informativeText));
    styleTexts(*box);
    // An alert shadows the window's own keys; the end of the program is nobody's to refuse.
    connect(new QShortcut(QKeySequence("Ctrl+Q"), box), &QShortcut::activated, this, &AlertPresenter::quitAsked);
    addButtons(*box, alert);
    if (alert.accessory) addCheckBox(*box, alert);
    showLook(*box, alert);
    return box;
}

namespace {

// Styles make the outline of a check box of the window's colour, a little darker: faint on a light window, and not to
// be seen on a dark one.
QPalette paletteForBox(QPalette palette) {
    constexpr int kStronger = 160; // per cent
    palette.setColor(QPalette::Window, isDark(palette) ? palette.color(QPalette::WindowText)
                                                       : palette.color(QPalette::Window).darker(kStronger));
    return palette;
}

} // namespace

// What depends on the desktop's colours and on the screen.
void AlertPresenter::showLook(QMessageBox& box, const AlertDescription& alert) {
    if (box.checkBox() != nullptr) box.checkBox()->setPalette(paletteForBox(_window->palette()));
    const QIcon picture = pictureNamed(qtext(alert.iconName), _window->palette());
    const qreal ratio = _window->devicePixelRatioF();
    if (picture.isNull()) {
        box.setIcon(alert.style == AlertStyle::critical ? QMessageBox::Critical : QMessageBox::Warning);
    } else {
        box.setIconPixmap(alert.style == AlertStyle::critical
                              ? warningPicture(picture, kPictureSize, ratio)
                              : picture.pixmap(QSize(kPictureSize, kPictureSize), ratio));
    }
}

void AlertPresenter::addButtons(QMessageBox& box, const AlertDescription& alert) {
    std::vector<QAbstractButton*> buttons;
    for (const std::string& title : alert.buttons) {
        // One role for all: the desktop's style would sort different roles in its own order.
        QPushButton* const button = box.addButton(qtext(title), QMessageBox::ActionRole);
        button->setAccessibleName(qtext(title));
        button->setAutoDefault(false); // else Return would press whichever has the focus, "Continue" too
        buttons.push_back(button);
        if (buttons.size() == 1) box.setDefaultButton(button);
        if (alert.escapeButton == buttons.size() - 1) box.setEscapeButton(button);
    }
    if (!alert.layout) return;
    auto* const layout = new Layout(box, *_mainQueue, buttons);
    alert.layout(*layout);
}

void AlertPresenter::addCheckBox(QMessageBox& box, const AlertDescription& alert) {
    auto* const check = new QCheckBox(qtext(alert.accessory->title));
    check->setAccessibleName(qtext(alert.accessory->title));
    check->setMinimumSize(alert.accessory->width, alert.accessory->height);
    check->setChecked(alert.accessory->state == 1);
    box.setCheckBox(check);
    connect(check, &QCheckBox::toggled, &box, [accessory = alert.accessory](bool isChecked) {
        accessory->state = isChecked ? 1 : 0;
        if (accessory->action) accessory->action(*accessory);
    });
}

} // namespace zul::ui
