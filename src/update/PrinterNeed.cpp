// Decides what a printer needs: an open update first, then what keeps it from being updated, then its versions. Called
// on the main queue by the table of the window and by the commands that list printers.
#include "update/PrinterNeed.h"

#include "Classes/TBUSBPrinterZUL.h"
#include "archive/ArchiveTexts.h"
#include "archive/FirmwareArchive.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/LocalizedFormat.h"
#include "platform/usb/IOReturn.h"
#include "protocol/StatusTexts.h"
#include "update/Update.h"
#include "update/UpdatePhase.h"
#include "update/UpdateSupervisor.h"
#include "update/UpdateTexts.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zul {

namespace {

struct NeedRow {
    PrinterNeed need;
    const char* name;
    const char* word;
    NeedTone tone;
};

constexpr std::array<NeedRow, kPrinterNeeds> kRows = {{
    {PrinterNeed::unknown, "unknown", operatorText("Being read"), NeedTone::neutral},
    {PrinterNeed::upToDate, "up to date", operatorText("Up to date"), NeedTone::good},
    {PrinterNeed::updateAvailable, "update available", operatorText("Update available"), NeedTone::underWay},
    {PrinterNeed::newerInstalled, "newer installed", operatorText("Newer installed"), NeedTone::neutral},
    {PrinterNeed::updating, "updating", operatorText("Updating"), NeedTone::underWay},
    {PrinterNeed::restarting, "restarting", operatorText("Restarting"), NeedTone::underWay},
    {PrinterNeed::interrupted, "interrupted", operatorText("Interrupted"), NeedTone::failed},
    {PrinterNeed::notReady, "not ready", operatorText("Not ready"), NeedTone::attention},
    {PrinterNeed::inUse, "in use", operatorText("In use"), NeedTone::attention},
    {PrinterNeed::noPermission, "no permission", operatorText("No permission"), NeedTone::attention},
    {PrinterNeed::notAnswering, "not answering", operatorText("Not answering"), NeedTone::attention},
    {PrinterNeed::fileMissing, "file missing", operatorText("File missing"), NeedTone::failed},
    {PrinterNeed::fileDamaged, "file damaged", operatorText("File damaged"), NeedTone::failed},
}};

const NeedRow& rowOf(PrinterNeed need) {
    return kRows.at(static_cast<std::size_t>(need));
}

NeedState state(PrinterNeed need, std::string detail = {}) {
    return {.need = need, .word = wordFor(need), .detail = std::move(detail)};
}

NeedState stateOfUpdate(const Update& update) {
    const UpdatePhase phase = update.state.phase;
    const bool isAway = phase == UpdatePhase::loaderAway || phase == UpdatePhase::restarting;
    NeedState result = state(isAway ? PrinterNeed::restarting : PrinterNeed::updating);
    result.share = update.state.share();
    if (update.isAsking) {
        result.detail = Bundle::localized(operatorText("Waiting for your answer"));
    } else if (!update.advice.empty()) {
        result.detail = update.advice;
    } else if (isAway) {
        result.detail = Bundle::localized(operatorText("Leave it switched on"));
    } else {
        result.detail = Bundle::localized(phaseRow(phase).text);
    }
    return result;
}

// What keeps the printer from being used or updated, whatever its versions are.
std::optional<NeedState> obstacle(const UpdateSupervisor& supervisor, TBUSBPrinterZUL& printer) {
    const std::string key = printer.keyUSBdevice();
    if (const auto holder = supervisor.holder(key)) return state(PrinterNeed::inUse, describeHolder(*holder));
    if (printer.openStatus() == kIOReturnNotPrivileged) {
        return state(PrinterNeed::noPermission,
                     Bundle::localized(operatorText("this user has no right to open the printer")));
    }
    if (const std::string text = supervisor.interruptedText(printer); !text.empty()) {
        return state(PrinterNeed::interrupted, text);
    }
    if (!printer.printerCommandQueue() || supervisor.isNotAnswering(key)) {
        return state(PrinterNeed::notAnswering, Bundle::localized(operatorText("Switch it off and on")));
    }
    if (!supervisor.hasReportedStatus(key)) return state(PrinterNeed::unknown);
    const std::string status = printer.printerStatus().value_or("");
    if (status != textForStatus(kReadyStatus)) return state(PrinterNeed::notReady, status);
    return std::nullopt;
}

NeedState stateOfVersions(const UpdateSupervisor& supervisor, TBUSBPrinterZUL& printer) {
    static_cast<void>(printer.newFirmwareVersion()); // checks the files
    const auto available = printer.availableFirmware();
    if (!available) {
        return state(PrinterNeed::fileMissing,
                     Bundle::localized(operatorText("There are no firmware files for this model")));
    }
    using State = AvailableFirmware::State;
    const bool isMissing = available->state == State::missing || available->state == State::noDigest;
    if (!available->isReady())
        return state(isMissing ? PrinterNeed::fileMissing : PrinterNeed::fileDamaged, availableText(*available));
    const auto installed = printer.firmwareVersion();
    if (!installed) return state(PrinterNeed::unknown);
    if (supervisor.isUpToDate(printer)) return state(PrinterNeed::upToDate);
    if (printer.installedFirmwareVersion() > printer.availableFirmwareVersion()) {
        return state(PrinterNeed::newerInstalled, localizedFormat("%s is available", available->version));
    }
    if (*installed == available->version) {
        return state(PrinterNeed::updateAvailable, Bundle::localized(operatorText("other color tables")));
    }
    return state(PrinterNeed::updateAvailable, *installed + " → " + available->version);
}

} // namespace

const char* nameOfNeed(PrinterNeed need) {
    return rowOf(need).name;
}

std::string wordFor(PrinterNeed need) {
    return Bundle::localized(rowOf(need).word);
}

NeedTone toneOf(PrinterNeed need) {
    return rowOf(need).tone;
}

std::string summaryOfNeeds(const std::vector<PrinterNeed>& needs) {
    if (needs.empty()) return {};
    const auto count = [&needs](auto isMeant) {
        return static_cast<unsigned long>(std::ranges::count_if(needs, isMeant));
    };
    const auto available = count([](PrinterNeed need) { return need == PrinterNeed::updateAvailable; });
    const auto open =
        count([](PrinterNeed need) { return need == PrinterNeed::updating || need == PrinterNeed::restarting; });
    const auto good = count([](PrinterNeed need) { return toneOf(need) == NeedTone::good; });
    const auto attention =
        count([](PrinterNeed need) { return toneOf(need) == NeedTone::attention || toneOf(need) == NeedTone::failed; });
    std::vector<std::string> parts;
    if (open > 0) parts.push_back(localizedPluralFormat("%d is being updated", "%d are being updated", open));
    if (available > 0) parts.push_back(localizedPluralFormat("%d needs an update", "%d need an update", available));
    if (attention > 0) parts.push_back(localizedPluralFormat("%d needs attention", "%d need attention", attention));
    if (good > 0) parts.push_back(localizedPluralFormat("%d is up to date", "%d are up to date", good));
    const std::string all = localizedPluralFormat("%d printer", "%d printers", needs.size());
    return parts.empty() ? all : all + ": " + fmt::format("{}", fmt::join(parts, ", "));
}

std::optional<NeedState> needOfAwaited(const UpdateSupervisor& supervisor, const std::string& key) {
    const auto found = supervisor.updates().find(key);
    if (found == supervisor.updates().end() || !found->second.isOpen() || found->second.isDismissed)
        return std::nullopt;
    return stateOfUpdate(found->second);
}

NeedState needOf(const UpdateSupervisor& supervisor, TBUSBPrinterZUL& printer) {
    if (const auto updating = needOfAwaited(supervisor, printer.keyUSBdevice())) return *updating;
    if (const auto hindered = obstacle(supervisor, printer)) return *hindered;
    return stateOfVersions(supervisor, printer);
}

} // namespace zul
