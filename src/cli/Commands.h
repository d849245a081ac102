// The commands of zulctl. Each takes its parsed options and yields an exit status (ExitStatus.h).
#pragma once

#include "cli/Options.h"

namespace zul::cli {

class Output;
class Program;

// Need no printer: called on the main thread before any queue runs. They return the exit status.
int runArchive(const Options& options, const Output& output);
int runSRecord(const Options& options, const Output& output);
int runDefaults(const Options& options, const Output& output);
int runHostInfo(const Output& output);
int runHistory(const Options& options, const Output& output);

// Need printers: called on the main queue after the first queries of all attached printers have ended. Each ends the
// main queue with the exit status, during the call or later.
void runList(Program& program);
void runInfo(Program& program);
void runStatus(Program& program);
void runWatch(Program& program);
void runResetCounter(Program& program);
void runUSBSerial(Program& program);
void runReset(Program& program);
void runUpdate(Program& program);
void runDoctor(Program& program);

} // namespace zul::cli
