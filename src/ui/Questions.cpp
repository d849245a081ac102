// Descriptions of the window's own alerts, so that all of them treat the default button and Escape alike. GUI thread;
// called by MainWindow and ReportSaver.
#include "ui/Questions.h"

#include "Classes/Outlets.h"
#include "platform/foundation/Bundle.h"
#include "ui/Texts.h"

#include <functional>
#include <string>
#include <utility>

namespace zul::ui {

AlertDescription messageAlert(std::string title, std::string message) {
    AlertDescription alert;
    alert.messageText = std::move(title);
    alert.informativeText = std::move(message);
    alert.buttons = {Bundle::localized("OK")};
    alert.escapeButton = 0;
    return alert;
}

AlertDescription questionAlert(Question question, std::function<void()> whenAccepted) {
    AlertDescription alert;
    alert.messageText = std::move(question.title);
    alert.informativeText = std::move(question.message);
    alert.buttons = {std::move(question.decline), std::move(question.accept)};
    alert.escapeButton = 0;
    alert.completion = [whenAccepted = std::move(whenAccepted)](int answer) {
        if (answer == kAlertSecondButton) whenAccepted();
    };
    return alert;
}

QString samplesInUse() {
    return localized("The firmware files in use are samples for virtual printers.");
}

QString useVendorFiles() {
    return localized("Start the program with --firmware-archive and the folder with the vendor's files.");
}

} // namespace zul::ui
