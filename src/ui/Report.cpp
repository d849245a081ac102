// Composes and writes the two files of a report. GUI thread, because it reads the printers' device info; called by
// ReportSaver.
#include "ui/Report.h"

#include "Classes/TBUSBPrinter.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "session/PrinterInfo.h"
#include "ui/Details.h"
#include "ui/Texts.h"

#include <QByteArray>
#include <QSaveFile>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace zul::ui {

ReportFiles reportFiles(const QString& named) {
    QString base = named;
    for (const char* suffix : {".txt", ".json"}) {
        if (!base.endsWith(suffix)) continue;
        base.chop(static_cast<qsizetype>(qstrlen(suffix)));
        break; // only one: another suffix is part of the name
    }
    return {base + ".txt", base + ".json"};
}

QString writeReport(const std::vector<std::shared_ptr<TBUSBPrinterZUL>>& printers, const QString& heading,
                    const ReportFiles& files) {
    nlohmann::json all = nlohmann::json::array();
    QString text = heading + "\n";
    for (const auto& printer : printers) {
        all.push_back(infoOf(*printer));
        text += "\n" + qtext(displayNameOf(*printer)) + "\n";
        for (const auto& [label, value] : detailsOf(*printer)) text += "  " + label + ": " + value + "\n";
    }
    const std::string json = all.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    const std::pair<QString, QByteArray> contents[] = {{files.text, text.toUtf8()},
                                                       {files.json, QByteArray::fromStdString(json)}};
    for (const auto& [path, bytes] : contents) {
        // Replaces an earlier report only when the new one is complete.
        QSaveFile saved(path);
        if (!saved.open(QIODevice::WriteOnly) || saved.write(bytes) != bytes.size() || !saved.commit()) {
            return path + ": " + saved.errorString() + ". " + localized("Choose a folder that can be written to.");
        }
    }
    return {};
}

} // namespace zul::ui
