// What the tests of updates share: the steps to the first command, the shown state, and the journal of the printers.
// GUI thread.
#pragma once

#include "window/Stage.h"

#include "update/UpdateSupervisor.h"

#include <QAction>
#include <doctest/doctest.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

namespace zul::test {

inline const QString kConfirmTitle = "-- Warning --\n\nAre you certain you want to update the firmware?";
inline const QString kSuccessTitle = "Firmware update was successful!";

inline Update onlyUpdate(Stage& stage) {
    const auto& updates = stage.supervisor().updates();
    REQUIRE(updates.size() == 1);
    return updates.begin()->second;
}

inline void agreeAndConfirm(Stage& stage, const QString& available) {
    stage.waitForAlert("Attention:");
    stage.click("I Agree");
    stage.answer("Continue");
    stage.waitForAlert(kConfirmTitle);
    stage.answer("Update Firmware to " + available);
}

// What the printers received of the update, in order: written commands, and each time a printer was detached and
// attached.
inline std::vector<std::string> changesOnTheWire(Stage& stage) {
    std::vector<std::string> changes;
    std::istringstream lines(TemporaryFolder::read(stage.journalFile()));
    for (std::string line; std::getline(lines, line);) {
        const auto entry = nlohmann::json::parse(line);
        const std::string event = entry["event"];
        const std::string command = entry.value("command", "");
        if (event == "leave" || event == "arrive") changes.push_back(event);
        const auto isA = [&](const char* kind) { return event == "command" && command.starts_with(kind); };
        if (isA("FW_UPD") || isA("TBL_CL") || isA("TBL_WT")) changes.push_back(command);
    }
    return changes;
}

inline QAction& updateAction(Stage& stage) {
    return *stage.window().findChild<QAction*>("actionUpdate");
}

} // namespace zul::test
