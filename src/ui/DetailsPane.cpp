#include "ui/DetailsPane.h"

#include "Classes/ColorTables.h"
#include "archive/FirmwareArchive.h"
#include "platform/foundation/Format.h"
#include "session/PrinterFacts.h"
#include "ui/Texts.h"

#include <QScrollBar>
#include <algorithm>

namespace zul::ui {

namespace {

using Details = std::vector<std::pair<QString, QString>>;

QString ownerText(Ownership ownership) {
    if (ownership == Ownership::otherProgram) return localized("another program");
    return ownership == Ownership::thisProgram ? localized("this program") : localized("nobody");
}

void add(Details& details, const char* label, const std::optional<std::string>& value) {
    if (value && !value->empty()) details.emplace_back(localized(label), qtext(*value));
}

void addFirmware(Details& details, TBUSBPrinterZUL& printer) {
    add(details, operatorText("Firmware"), printer.firmwareVersion());
    // Called for its check, whose results addFirmwareFiles lists.
    static_cast<void>(printer.newFirmwareVersion());
    if (printer.firmwareOffer()) add(details, operatorText("Available Firmware"), offeredFirmware(printer));
    add(details, operatorText("Previous firmware"), printer.fact(HOLVEN_TBPrinterFirmwareVersionPrevious));
    for (const ColorTable& table : allColorTables()) add(details, table.versionLabel, printer.fact(table.versionKey));
    for (const ColorTable& table : allColorTables()) add(details, table.checksumLabel, printer.fact(table.checksumKey));
}

// What came of the last look at the files; a file that is not there is not looked at.
void addFirmwareFiles(Details& details, TBUSBPrinterZUL& printer) {
    const DeviceInfo& known = *printer.deviceInfoDict();
    for (const std::string& name : known.strings(cFirmwareFilenames).value_or(std::vector<std::string>{})) {
        const auto isIntact = known.boolean(name);
        if (!isIntact) continue;
        details.emplace_back(localized("Firmware file"),
                             qtext(name) + ": " + (*isIntact ? localized("intact") : localized("damaged")));
    }
}

void addUSB(Details& details, const TBUSBPrinterZUL& printer) {
    add(details, operatorText("Location"), printer.locationText());
    add(details, operatorText("USB vendor and product ID"),
        formatted("0x%.4X 0x%.4X", printer.vendorNumber(), printer.productNumber()));
    add(details, operatorText("USB vendor"), printer.vendorUSB());
    add(details, operatorText("USB product"), printer.productUSB());
    add(details, operatorText("USB serial number"), printer.serialNumberUSB());
    add(details, operatorText("USB serial number setting"), Bundle::localized(printer.usbISerialString().c_str()));
    add(details, operatorText("1284 device ID"), printer.raw1284DeviceID());
    add(details, operatorText("USB state"), printer.status());
    details.emplace_back(localized("Held by"), ownerText(printer.ownership()));
    add(details, operatorText("Key"), printer.keyUSBdevice());
}

} // namespace

Details detailsOf(TBUSBPrinterZUL& printer) {
    Details details;
    add(details, operatorText("Model"), printer.model());
    add(details, operatorText("Manufacturer"), printer.manufacturer());
    add(details, operatorText("Serial Number"), printer.printerSerialNumber());
    add(details, operatorText("Status"), printer.printerStatus());
    add(details, operatorText("Lifetime Counter"), printer.lifetimeCounter());
    if (printer.inFirmwareUpdate()) details.emplace_back(localized("Firmware update"), localized("under way"));
    addFirmware(details, printer);
    addFirmwareFiles(details, printer);
    addUSB(details, printer);
    if (printer.isVirtual()) details.emplace_back(localized("Virtual printer"), localized("yes"));
    return details;
}

DetailsPane::DetailsPane(QWidget* parent) : QTextEdit(parent) {
    setReadOnly(true);
    setTabChangesFocus(true);
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
}

void DetailsPane::show(const std::shared_ptr<TBUSBPrinterZUL>& printer) {
    QString html = "<table cellspacing='3' cellpadding='2'>";
    if (printer) {
        for (const auto& [label, value] : detailsOf(*printer)) {
            html += QString("<tr><td><b>%1</b></td><td>%2</td></tr>").arg(label.toHtmlEscaped(), value.toHtmlEscaped());
        }
    }
    html += "</table>";
    if (html == _shown) return;
    _shown = html;
    const bool isSamePrinter = printer && printer == _printer.lock();
    _printer = printer;
    const int place = verticalScrollBar()->value();
    const QTextCursor marked = textCursor();
    const QString text = marked.selectedText();
    const int from = marked.anchor();
    const int to = marked.position();
    const int length = document()->characterCount();
    setHtml(html);
    if (!isSamePrinter) return;
    // A fact has changed. What the operator has marked stays marked where it is still the same: in its place, or moved
    // by a change above it.
    for (const int moved : {0, document()->characterCount() - length}) {
        if (const QTextCursor again = cursorBetween(from + moved, to + moved); again.selectedText() == text) {
            setTextCursor(again);
            break;
        }
    }
    verticalScrollBar()->setValue(place);
}

QTextCursor DetailsPane::cursorBetween(int anchor, int position) const {
    const int end = document()->characterCount() - 1;
    QTextCursor cursor(document());
    cursor.setPosition(std::clamp(anchor, 0, end));
    cursor.setPosition(std::clamp(position, 0, end), QTextCursor::KeepAnchor);
    return cursor;
}

} // namespace zul::ui
