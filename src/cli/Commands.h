// The commands of zulctl: each takes its options and answers with an exit status.
#pragma once

#include "cli/Options.h"

namespace zul::cli {

class Output;
class Program;

// Without printers; before any queue runs.
int runArchive(const Options& options, const Output& output);
int runSRecord(const Options& options, const Output& output);
int runDefaults(const Options& options, const Output& output);
int runHostInfo(const Output& output);
int runHistory(const Options& options, const Output& output);

// With printers: called on the main queue once the printers have been asked for their facts; they end the program's
// main queue with the exit status, at once or later.
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
