#include "ui/UpdateCard.h"

#include "Classes/UpdateWords.h"
#include "platform/foundation/LocalizedFormat.h"
#include "ui/Pictures.h"
#include "ui/Texts.h"

#include <QEvent>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QProgressBar>
#include <QToolButton>
#include <QVBoxLayout>

namespace zul::ui {

namespace {

using End = FollowedUpdate::End;
using std::chrono::duration_cast;
using std::chrono::seconds;

constexpr int kPictureSize = 48;
constexpr int kBarSteps = 1000;

// The steps that the operator sees, and the phase that each begins with.
struct Step {
    const char* title;
    UpdatePhase first;
};
constexpr std::array<Step, 7> kStepList = {{
    {operatorText("Checking"), UpdatePhase::checking},
    {operatorText("Entering the loader"), UpdatePhase::enteringLoader},
    {operatorText("Restarting"), UpdatePhase::loaderGone},
    {operatorText("Writing firmware"), UpdatePhase::writing},
    {operatorText("Restarting"), UpdatePhase::restarting},
    {operatorText("Writing color tables"), UpdatePhase::colorTables},
    {operatorText("Done"), UpdatePhase::done},
}};

std::size_t stepOf(UpdatePhase phase) {
    std::size_t step = 0;
    while (step + 1 < kStepList.size() && kStepList[step + 1].first <= phase) ++step;
    return step;
}

// What a failed update did not get through.
std::size_t failedStep(const UpdateState& state) {
    switch (state.shortfall()) {
    case UpdateShortfall::imageNotTaken:
    case UpdateShortfall::archiveRefused:
        return stepOf(UpdatePhase::writing);
    case UpdateShortfall::versionUnread:
    case UpdateShortfall::otherVersion:
        return stepOf(UpdatePhase::restarting);
    case UpdateShortfall::tablesMissing:
    case UpdateShortfall::noTable:
        return stepOf(UpdatePhase::colorTables);
    case UpdateShortfall::none:
        break;
    }
    return stepOf(UpdatePhase::done);
}

QString clockText(Clock::Duration span) {
    const long long all = duration_cast<seconds>(span).count();
    return qtext(formatted("%d:%.2d", all / 60, all % 60));
}

QString kilobytes(std::uint32_t bytes) {
    return QLocale().formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat);
}

QLabel* makeLabel(QWidget* parent, const char* accessibleName) {
    auto* const label = new QLabel(parent);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    label->setAccessibleDescription(localized(accessibleName));
    return label;
}

} // namespace

UpdateCard::UpdateCard(QWidget* parent) : QFrame(parent) {
    setFrameShape(QFrame::StyledPanel);
    _picture = new QLabel(this);
    _picture->setFixedSize(kPictureSize, kPictureSize);
    _title = makeLabel(this, operatorText("Printer"));
    QFont bold = _title->font();
    bold.setBold(true);
    _title->setFont(bold);
    _versions = makeLabel(this, operatorText("Firmware"));
    _bar = new QProgressBar(this);
    _bar->setRange(0, kBarSteps);
    QSizePolicy room = _bar->sizePolicy();
    room.setRetainSizeWhenHidden(true); // what is below stays in its place
    _bar->setSizePolicy(room);
    _bar->setAccessibleName(localized(operatorText("Progress of the update")));
    _stateLine = makeLabel(this, operatorText("State of the update"));
    _times = makeLabel(this, operatorText("Times of the update"));
    _advice = makeLabel(this, operatorText("What to do"));
    _advice->setFont(bold);
    _close = new QToolButton(this);
    _close->setText("×");
    _close->setAutoRaise(true);
    _close->setAccessibleName(localized(operatorText("Close this report")));
    _close->setToolTip(localized(operatorText("Close this report")));
    connect(_close, &QToolButton::clicked, this, &UpdateCard::closed);

    auto* const names = new QVBoxLayout;
    names->setSpacing(0);
    names->addWidget(_title);
    names->addWidget(_versions);
    auto* const head = new QHBoxLayout;
    head->addWidget(_picture);
    head->addLayout(names, 1);
    head->addWidget(_close, 0, Qt::AlignTop);
    auto* const steps = new QHBoxLayout;
    makeSteps(*steps);
    auto* const all = new QVBoxLayout(this);
    all->addLayout(head);
    all->addLayout(steps);
    all->addWidget(_bar);
    all->addWidget(_stateLine);
    all->addWidget(_advice);
    all->addWidget(_times);
}

QWidget& UpdateCard::closeButton() const {
    return *_close;
}

void UpdateCard::makeSteps(QBoxLayout& layout) {
    for (QLabel*& step : _steps) {
        step = new QLabel(this);
        step->setTextFormat(Qt::PlainText);
        step->setWordWrap(true);
        step->setAlignment(Qt::AlignTop | Qt::AlignLeft);
        layout.addWidget(step, 1); // all as wide
    }
}

void UpdateCard::show(const FollowedUpdate& update, Clock::TimePoint now) {
    setAccessibleName(qtext(localizedFormat("Update of %s", update.name)));
    if (_pictureName != update.picture) {
        _pictureName = update.picture;
        showPicture();
    }
    _title->setText(accessibleName());
    const auto& state = update.state;
    _versions->setText(qtext(
        localizedFormat("from %s to %s", state.previousVersion.value_or("?"), state.offeredVersion.value_or("?"))));
    showSteps(update);
    showProgress(update);
    showTimes(update, now);
    showResult(update);
    _close->setVisible(update.end != End::none || update.mayBePutAway);
    QWidget::show();
}

// A sign and a weight for each step, not a colour: it must be told without.
void UpdateCard::showSteps(const FollowedUpdate& update) {
    const bool hasFailed = update.end == End::failed;
    const std::size_t current = hasFailed ? failedStep(update.state) : stepOf(update.state.phase);
    const bool isDone = update.end == End::succeeded;
    for (std::size_t i = 0; i < kSteps; ++i) {
        QString title = localized(kStepList[i].title);
        const auto& state = update.state;
        if (kStepList[i].first == UpdatePhase::colorTables && state.table > 0) {
            title = qtext(localizedFormat("Color table %d of %d", state.table, state.tables));
        }
        const bool isPast = i < current || isDone;
        const bool isNow = i == current && !isPast;
        const char* sign = "○";
        QString spoken = qtext(localizedFormat("%s: to come", title.toStdString()));
        if (isPast) {
            sign = "✓";
            spoken = qtext(localizedFormat("%s: done", title.toStdString()));
        } else if (isNow) {
            const bool isOver = update.end != End::none;
            sign = isOver ? "✗" : "▶";
            spoken = qtext(isOver ? localizedFormat("%s: not done", title.toStdString())
                                  : localizedFormat("%s: current step", title.toStdString()));
        }
        QFont weight = font();
        weight.setBold(isNow);
        _steps[i]->setFont(weight);
        _steps[i]->setText(QString::fromUtf8(sign) + " " + title);
        _steps[i]->setAccessibleName(spoken);
    }
}

// The bytes of the image or the table while they are written, and nothing that would look like them in between: how
// long a restart takes nobody knows.
void UpdateCard::showProgress(const FollowedUpdate& update) {
    const auto& state = update.state;
    const bool isWriting =
        update.end == End::none && (state.phase == UpdatePhase::writing || state.phase == UpdatePhase::colorTables);
    int value = 0;
    QString format;
    if (update.end == End::succeeded) {
        value = kBarSteps;
        format = "%p %";
    } else if (isWriting && state.bytesTotal > 0) {
        value = static_cast<int>(1.0 * kBarSteps * state.bytesDone / state.bytesTotal);
        format = qtext(localizedFormat("%s of %s", kilobytes(state.bytesDone).toStdString(),
                                       kilobytes(state.bytesTotal).toStdString()));
    }
    _bar->setFormat(format);
    _bar->setValue(value); // once: each value is painted, and told to screen readers, at once
    _bar->setVisible(isWriting || update.end == End::succeeded);
}

void UpdateCard::showTimes(const FollowedUpdate& update, Clock::TimePoint now) {
    const auto until = update.end == End::none ? now : update.endedAt;
    const QString elapsed = qtext(localizedFormat("Elapsed: %s", clockText(until - update.state.begun).toStdString()));
    if (update.end != End::none) {
        _times->setText(elapsed);
        return;
    }
    const long long silent = duration_cast<seconds>(now - update.state.lastSign).count();
    const QString sign =
        qtext(localizedPluralFormat("last sign of life %d second ago", "last sign of life %d seconds ago",
                                    static_cast<unsigned long>(std::max(silent, 0LL))));
    _times->setText(elapsed + " · " + sign);
    if (update.end == End::none) {
        _stateLine->setText(asSentence(describeState(update.state, now)));
    }
}

void UpdateCard::showResult(const FollowedUpdate& update) {
    QString advice;
    const auto& state = update.state;
    switch (update.end) {
    case End::none:
        if (update.isStalled || update.isWaiting) advice = "⚠ " + qtext(adviceForStall(state));
        break;
    case End::notStarted:
        _stateLine->setText(update.reason.isEmpty() ? localized("Not updated. Nothing was changed in the printer.")
                                                    : update.reason);
        break;
    case End::succeeded:
        _stateLine->setText("✓ " +
                            qtext(localizedFormat("Updated from %s to %s.", state.previousVersion.value_or("?"),
                                                  state.currentVersion.value_or("?"))) +
                            " " +
                            qtext(localizedPluralFormat("%d color table written.", "%d color tables written.",
                                                        static_cast<unsigned long>(state.tablesWritten))));
        break;
    case End::failed:
        _stateLine->setText("✗ " +
                            qtext(localizedFormat("The update is not complete: %s.", update.reason.toStdString())));
        advice = "⚠ " + localized("Leave the printer switched on and start the update again.");
        break;
    }
    _advice->setText(advice);
    _advice->setVisible(!advice.isEmpty());
}

void UpdateCard::showPicture() {
    _picture->setPixmap(
        pictureNamed(_pictureName, palette()).pixmap(QSize(kPictureSize, kPictureSize), devicePixelRatioF()));
}

bool UpdateCard::event(QEvent* event) {
    const bool isOtherLook = event->type() == QEvent::PaletteChange || event->type() == QEvent::ScreenChangeInternal;
    if (isOtherLook) showPicture();
    return QFrame::event(event);
}

} // namespace zul::ui
