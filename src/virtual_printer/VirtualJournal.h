// Records all events of the virtual printers in one ordered list: arrivals, claims, commands, reads, departures. For
// tests, and as JSON lines for people. Any thread.
#pragma once

#include "platform/dispatch/Clock.h"
#include "platform/foundation/Data.h"

#include <chrono>
#include <cstdint>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

namespace zul {

/// Successful writes have no entry of their own; the commands that they contain have one.
struct VirtualJournalEntry {
    std::chrono::milliseconds time{0}; // since the journal began
    std::string printer;               // serial number
    std::string event;                 // arrive, leave, open, refuse, close, control, command, read, write, reset,
                                       // resynchronize
    std::string command;               // text of a command; recipient and request of a control request
    std::uint32_t length = 0;          // payload of a command, bytes of a read, bytes accepted of a failed write
    std::string sha256;                // of a payload; empty if there is none
    Data header;                       // of a command: the frame's bytes before the payload; not written to files
    std::string result;                // of a failed read or write: timeout, stall, gone; otherwise empty
};

class VirtualJournal {
  public:
    /// The times of entries are relative to this moment. The clock must outlive the journal.
    explicit VirtualJournal(Clock& clock) : _clock(clock), _begin(clock.now()) {}

    /// Also writes each entry to the file, flushed line by line. Returns false if the file cannot be opened.
    bool writeTo(const std::string& file);
    /// Appends the entry with the time of the clock.
    void add(VirtualJournalEntry entry);

    /// A copy of the list.
    std::vector<VirtualJournalEntry> entries() const;
    /// Texts of the recorded commands, of all printers or of one.
    std::vector<std::string> commands(const std::string& printer = {}) const;
    /// Empties the list; a file keeps its lines and is continued.
    void clear();

  private:
    Clock& _clock;
    const Clock::TimePoint _begin;
    mutable std::mutex _mutex;
    std::vector<VirtualJournalEntry> _entries;
    std::ofstream _file;
};

/// Lower-case hexadecimal SHA-256 of the bytes.
std::string sha256Of(const Data& data);

} // namespace zul
