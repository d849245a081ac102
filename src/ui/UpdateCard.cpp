// Turns the state of one update into widgets. GUI thread; UpdatePanel calls show on each change of the update and twice
// a second while it runs.
#include "ui/UpdateCard.h"

#include "platform/dispatch/Clock.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/LocalizedFormat.h"
#include "ui/Pictures.h"
#include "ui/Texts.h"
#include "update/Update.h"
#include "update/UpdatePhase.h"
#include "update/UpdateStep.h"
#include "update/UpdateTexts.h"
#include "update/UpdateVerdict.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QProgressBar>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace zul::ui {

namespace {

using std::chrono::duration_cast;
using std::chrono::seconds;

constexpr int kPictureSize = 48;
constexpr int kBarSteps = 1000;

// In the order of the steps.
constexpr std::array<const char*, kUpdateSteps> kStepTitles = {
    operatorText("Checking"),   operatorText("Entering the loader"),
    operatorText("Restarting"), operatorText("Writing firmware"),
    operatorText("Restarting"), operatorText("Writing color tables"),
    operatorText("Done"),
};

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
    room.setRetainSizeWhenHidden(true); // so that the lines below keep their place
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
        layout.addWidget(step, 1); // all have the same width
    }
}

void UpdateCard::show(const Update& update, Clock::TimePoint now) {
    setAccessibleName(qtext(localizedFormat("Update of %s", update.name)));
    if (const QString picture = qtext(update.picture); _pictureName != picture) {
        _pictureName = picture;
        showPicture();
    }
    _title->setText(accessibleName());
    const auto& state = update.state;
    _versions->setText(qtext(
        localizedFormat("from %s to %s", state.previousVersion.value_or("?"), state.availableVersion.value_or("?"))));
    showSteps(update);
    showProgress(update);
    showTimes(update, now);
    showResult(update);
    _close->setVisible(!update.isOpen() || update.mayBeDismissed);
    QWidget::show();
}

// Each step has a sign and a font weight instead of a color, which not all people can see.
void UpdateCard::showSteps(const Update& update) {
    const auto current = static_cast<std::size_t>(stepOf(update.state, update.verdict));
    const bool isDone = update.verdict.isSuccess();
    for (std::size_t i = 0; i < kSteps; ++i) {
        QString title = localized(kStepTitles[i]);
        const auto& state = update.state;
        if (static_cast<UpdateStep>(i) == UpdateStep::writingTables && state.table > 0) {
            title = qtext(localizedFormat("Color table %d of %d", state.table, state.tables));
        }
        const bool isPast = i < current || isDone;
        const bool isNow = i == current && !isPast;
        const char* sign = "○";
        QString spoken = qtext(localizedFormat("%s: not started", title.toStdString()));
        if (isPast) {
            sign = "✓";
            spoken = qtext(localizedFormat("%s: done", title.toStdString()));
        } else if (isNow) {
            const bool isOver = !update.isOpen();
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

// Shows the bytes of the image or the table while they are written, and no bar in between: how long a restart takes is
// not known.
void UpdateCard::showProgress(const Update& update) {
    const auto& state = update.state;
    const bool isWriting =
        update.isOpen() && (state.phase == UpdatePhase::writing || state.phase == UpdatePhase::colorTables);
    int value = 0;
    QString format;
    if (update.verdict.isSuccess()) {
        value = kBarSteps;
        format = "%p %";
    } else if (isWriting && state.bytesTotal > 0) {
        value = static_cast<int>(1.0 * kBarSteps * state.bytesDone / state.bytesTotal);
        format = qtext(localizedFormat("%s of %s", kilobytes(state.bytesDone).toStdString(),
                                       kilobytes(state.bytesTotal).toStdString()));
    }
    _bar->setFormat(format);
    _bar->setValue(value); // only once per call: each value is painted and read aloud at once
    _bar->setVisible(isWriting || update.verdict.isSuccess());
}

void UpdateCard::showTimes(const Update& update, Clock::TimePoint now) {
    const auto until = update.isOpen() ? now : update.endedAt;
    const QString elapsed = qtext(localizedFormat("Elapsed: %s", clockText(until - update.state.begun).toStdString()));
    if (!update.isOpen()) {
        _times->setText(elapsed);
        return;
    }
    const long long secondsAgo = duration_cast<seconds>(now - update.state.lastSign).count();
    const QString sign =
        qtext(localizedPluralFormat("last sign of life %d second ago", "last sign of life %d seconds ago",
                                    static_cast<unsigned long>(std::max(secondsAgo, 0LL))));
    _times->setText(elapsed + " · " + sign);
    _stateLine->setText(asSentence(describeState(update.state, now, update.usual)));
}

void UpdateCard::showResult(const Update& update) {
    const auto& state = update.state;
    const UpdateVerdict& verdict = update.verdict;
    if (verdict.result == UpdateResult::succeeded) {
        _stateLine->setText("✓ " +
                            qtext(localizedFormat("Updated from %s to %s.", textOrNull(state.previousVersion),
                                                  textOrNull(state.currentVersion))) +
                            " " +
                            qtext(localizedPluralFormat("%d color table written.", "%d color tables written.",
                                                        static_cast<unsigned long>(state.tablesWritten))));
    } else if (verdict.result == UpdateResult::upToDate) {
        _stateLine->setText("✓ " + qtext(localizedFormat("Up to date: %s.", verdict.reason)));
    } else if (!verdict.isOpen()) {
        _stateLine->setText("✗ " + qtext(verdict.isUntouched()
                                             ? localizedFormat("Not updated: %s.", verdict.reason)
                                             : localizedFormat("The update is not complete: %s.", verdict.reason)));
    }
    _advice->setText(update.advice.empty() ? QString() : "⚠ " + qtext(update.advice));
    _advice->setVisible(!update.advice.empty());
}

void UpdateCard::showPicture() {
    _picture->setPixmap(
        pictureNamed(_pictureName, palette()).pixmap(QSize(kPictureSize, kPictureSize), devicePixelRatioF()));
}

bool UpdateCard::event(QEvent* event) {
    if (changesLook(*event)) showPicture();
    return QFrame::event(event);
}

} // namespace zul::ui
