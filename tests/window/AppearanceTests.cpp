// How the window looks: the main states in light and dark, with enough contrast. The screenshots are for people to look
// at.
#include "window/Stage.h"
#include "window/Updates.h"

#include "ui/Pictures.h"

#include <QApplication>
#include <QCheckBox>
#include <QIcon>
#include <QImage>
#include <QMessageBox>
#include <QSet>
#include <algorithm>
#include <cmath>
#include <doctest/doctest.h>

namespace zul::test {

namespace {

double luminance(const QColor& color) {
    const auto part = [](double value) {
        return value <= 0.03928 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * part(color.redF()) + 0.7152 * part(color.greenF()) + 0.0722 * part(color.blueF());
}

double contrast(const QColor& one, const QColor& other) {
    const auto [darker, lighter] = std::minmax({luminance(one), luminance(other)});
    return (lighter + 0.05) / (darker + 0.05);
}

// The strongest contrast of any opaque point of the picture: its outline must be visible on the window.
double strongestContrast(const QIcon& icon, const QColor& background) {
    const QImage image = icon.pixmap(QSize(64, 64)).toImage().convertToFormat(QImage::Format_ARGB32);
    double strongest = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (image.pixelColor(x, y).alpha() < 250) continue;
            strongest = std::max(strongest, contrast(image.pixelColor(x, y), background));
        }
    }
    return strongest;
}

} // namespace

TEST_CASE("the main states in light and in dark") {
    for (const bool isDark : {false, true}) {
        const QString suffix = isDark ? "-dark" : "-light";
        Stage stage({.printers = {quick("VK14"), quick("VK18"), quick("VK-RZ7"), quick("VK26"), quick("VK28")},
                     .admittedProducts = {4, 5, 8, 0x8B01, 0x9001},
                     .isDark = isDark,
                     .speed = 10});
        stage.waitForDeviceInfo();
        CHECK(stage.rows() == 5);
        stage.screenshot("all-models" + suffix);
        stage.click("Update Firmware…");
        stage.waitForAlert("Attention:");
        stage.screenshot("agreement" + suffix);
        QPixmap box = stage.alert()->box->checkBox()->grab(QRect(0, 0, 16, 24)); // without its text
        CHECK(strongestContrast(QIcon(box), QApplication::palette().color(QPalette::Window)) >= 3);
        stage.click("I Agree");
        box = stage.alert()->box->checkBox()->grab(QRect(4, 4, 8, 16)); // the inside
        CHECK(strongestContrast(QIcon(box), QApplication::palette().color(QPalette::Base)) >= 4.5);
        stage.answer("Continue");
        stage.waitFor("the confirmation", [&] { return stage.alert() && stage.alert()->title != "Attention:"; });
        stage.screenshot("confirmation" + suffix);
        stage.answer(stage.alert()->buttons.last());
        stage.waitFor("the restart", [&] {
            return stage.supervisor().updates().begin()->second.state.phase >= UpdatePhase::loaderAway;
        });
        stage.screenshot("under-way" + suffix);
        stage.waitForAlert(kSuccessTitle);
        stage.screenshot("success" + suffix);
        stage.answer("Finish");
        stage.screenshot("updated" + suffix);
    }
}

TEST_CASE("the empty window, its notice and the log in light and in dark") {
    for (const bool isDark : {false, true}) {
        const QString suffix = isDark ? "-dark" : "-light";
        Stage stage({.printers = {quick("VK28")}, .isDark = isDark});
        stage.waitFor("the notice", [&] { return stage.visibleText().contains("--admit-product 0x9001"); });
        stage.screenshot("notice" + suffix);
        stage.triggerMenu("Window", "Log");
        stage.waitFor("the log window", [&] { return stage.find("Lines of the log") != nullptr; });
        stage.screenshot("log" + suffix);
    }
}

TEST_CASE("every control shows that it has the focus, in light and in dark") {
    for (const bool isDark : {false, true}) {
        CAPTURE(isDark);
        Stage stage({.printers = {quick("VK14")}, .isDark = isDark});
        stage.waitForDeviceInfo();
        const auto look = [&](const QWidget& widget) {
            const QPoint place = widget.mapTo(widget.window(), QPoint());
            return widget.window()->grab(QRect(place, widget.size()).adjusted(-3, -3, 3, 3)).toImage();
        };
        // Compares each control with the focus and after the focus has moved on.
        const auto checkRound = [&](int controls) {
            QSet<QWidget*> seen;
            // There is no focus before the window manager has activated the window.
            stage.waitFor("a focus", [] { return QApplication::focusWidget() != nullptr; });
            for (QWidget* focus = QApplication::focusWidget(); !seen.contains(focus);) {
                seen.insert(focus);
                const QImage with = look(*focus);
                stage.press(Qt::Key_Tab);
                const std::string name =
                    std::string(focus->metaObject()->className()) + " " + focus->objectName().toStdString();
                CHECK_MESSAGE(look(*focus) != with, name);
                stage.waitFor("a focus", [] { return QApplication::focusWidget() != nullptr; });
                focus = QApplication::focusWidget();
            }
            CHECK(seen.size() >= controls);
        };
        stage.window().findChild<QWidget*>("table")->setFocus(Qt::TabFocusReason);
        checkRound(2);
        stage.triggerMenu("Printer", "Update Firmware…");
        stage.waitForAlert("Attention:");
        stage.click("I Agree");
        checkRound(3);
        stage.answer("Continue");
        stage.waitFor("the confirmation", [&] { return stage.alert() && stage.alert()->title != "Attention:"; });
        stage.answer("Cancel");
        stage.waitFor("the result", [&] { return stage.find("Close this report") != nullptr; });
        stage.window().findChild<QWidget*>("updates")->setFocus(Qt::TabFocusReason);
        checkRound(4); // the updates, the close button of the report, the details and the table
    }
}

TEST_CASE("every picture is clearly visible on its window, light and dark, and sharp at twice the resolution") {
    for (const bool isDark : {false, true}) {
        useColors(isDark);
        const QPalette palette = QApplication::palette();
        for (const char* name : {"ZUL_VK_Series", "ZUL_RZ_Series", "V26A_LSide", "VK28", "action-update",
                                 "action-refresh", "action-hotplug", "action-serial", "action-report", "action-log",
                                 "action-claim", "action-counter", "action-about", "action-quit"}) {
            const QIcon icon = ui::pictureNamed(name, palette);
            REQUIRE_MESSAGE(!icon.isNull(), name);
            CHECK_MESSAGE(strongestContrast(icon, palette.color(QPalette::Window)) >= 4.5, name);
            CHECK(icon.pixmap(QSize(44, 44), 2.0).size() == QSize(88, 88));
        }
    }
    useColors(false);
    CHECK_FALSE(ui::applicationIcon().isNull());
    CHECK(ui::pictureNamed("no such picture", QApplication::palette()).isNull());
}

} // namespace zul::test
