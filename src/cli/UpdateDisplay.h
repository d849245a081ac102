// Progress of running updates: a live line on a terminal, plain lines otherwise, one object per line with --json. Main
// queue.
#pragma once

#include "cli/Output.h"
#include "platform/dispatch/Clock.h"
#include "update/Update.h"
#include "update/UpdateState.h"

#include <map>
#include <string>

namespace zul::cli {

class UpdateDisplay {
  public:
    /// Writes a live line only where standard output is a terminal and --json is not given.
    explicit UpdateDisplay(const Output& output);

    /// Called at every change and every half second.
    void show(const Update& update, Clock::TimePoint now);
    /// Writes a permanent line, also while a live line is shown. event: its name in JSON.
    void report(const std::string& key, const std::string& text, const char* event);
    /// Ends the live line, so that something else can be written.
    void breakLine();
    /// The terminal is gone: nothing is shown from now on.
    void close() { _isClosed = true; }
    /// The printer's update is over: it leaves the live line.
    void forget(const std::string& key) { _live.erase(key); }

  private:
    void showLive();
    void showPlain(const Update& update, Clock::TimePoint now);
    void showObject(const Update& update, Clock::TimePoint now);
    bool isNews(const UpdateState& state, Clock::TimePoint now);

    const Output& _output;
    const bool _isLive;
    std::map<std::string, std::string> _live;  // by key: the line's text
    std::map<std::string, std::string> _shown; // by key: what the last plain line reported
    bool _lineIsOpen = false;
    bool _isClosed = false;
};

} // namespace zul::cli
