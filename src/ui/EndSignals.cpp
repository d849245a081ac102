#include "ui/EndSignals.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace zul::ui {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
int ends[2] = {-1, -1}; // a signal handler may only write

void noteSignal(int /*signal*/) {
    const int kept = errno;
    const char byte = 0;
    [[maybe_unused]] const auto written = ::write(ends[1], &byte, 1);
    errno = kept;
}

} // namespace

EndSignals::EndSignals(std::function<void()> asked) {
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return;
    _notifier = std::make_unique<QSocketNotifier>(ends[0], QSocketNotifier::Read);
    QObject::connect(_notifier.get(), &QSocketNotifier::activated, [asked = std::move(asked)] {
        char byte = 0;
        while (::read(ends[0], &byte, 1) > 0) {
        }
        asked();
    });
    for (const int number : kSignals) std::signal(number, noteSignal);
}

EndSignals::~EndSignals() {
    for (const int number : kSignals) std::signal(number, SIG_DFL);
    _notifier.reset();
    for (int& end : ends) {
        if (end >= 0) ::close(end);
        end = -1;
    }
}

} // namespace zul::ui
