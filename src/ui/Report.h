// The report on all attached printers: a text file for people and a JSON file for programs. GUI thread, which is the
// main queue's; ReportSaver asks the operator for the file.
#pragma once

#include "Classes/TBUSBPrinterZUL.h"

#include <QString>
#include <memory>
#include <vector>

namespace zul::ui {

/// The two files of one report.
struct ReportFiles {
    QString text;
    QString json;
};

/// The files of the report that the operator named: "a", "a.txt" and "a.json" all mean "a.txt" and "a.json".
ReportFiles reportFiles(const QString& named);

/// Writes everything that is known about these printers to both files; each is replaced only once it is written
/// completely. heading: the first lines of the text. Returns what went wrong and what to do, in the operator's
/// language; empty if both files are written.
QString writeReport(const std::vector<std::shared_ptr<TBUSBPrinterZUL>>& printers, const QString& heading,
                    const ReportFiles& files);

} // namespace zul::ui
