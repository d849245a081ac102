// The commands of zulctl. Each takes its parsed options and yields an exit status (ExitStatus.h).
#pragma once

#include "cli/Options.h"

namespace zul::cli {

class Output;
class Program;

// Need no printer: called on the main thread before any queue runs. They return the exit status.
/// archive list, verify, digest, path: needs no session, and reads the folder itself.
int runArchive(const Options& options, const Output& output);
/// One line for each file; fails if one of them is not valid.
int runSRecord(const Options& options, const Output& output);
/// defaults read, write, delete: the same file as the window's settings.
int runDefaults(const Options& options, const Output& output);
/// Two lines about the machine and its operating system, below a banner.
int runHostInfo(const Output& output);
/// Lists past updates, or dismisses those of one printer.
int runHistory(const Options& options, const Output& output);

// Need printers: called on the main queue after the first queries of all attached printers have ended. Each ends the
// main queue with the exit status, during the call or later.
void runList(Program& program);
void runInfo(Program& program);
void runStatus(Program& program);
/// Ends with an interrupt, or when the reader has closed the output.
void runWatch(Program& program);
/// These three reserve the printer first, so that they disturb no update of another process.
void runResetCounter(Program& program);
void runUSBSerial(Program& program);
void runReset(Program& program);
/// Updates all chosen printers in parallel; the exit status is that of the first one that failed.
void runUpdate(Program& program);
/// Runs its checks on a queue of its own, because they wait for files and services.
void runDoctor(Program& program);

} // namespace zul::cli
