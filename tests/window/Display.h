// Asks the X server about windows: the toolkit's own copy of a window's position may stay wrong. GUI thread; for Stage.
#pragma once

#include <chrono>

class QWidget;

namespace zul::test {

/// The server shows the whole window, and no part of it is beyond the screen. Asks the server; the window manager may
/// still be busy. window: one without a frame of the window manager, that has been shown.
bool isWholeOnScreen(const QWidget& window);

/// Waits until the window manager has handled all requests so far and the toolkit all events that result from them,
/// such as requests to paint. False if that takes longer than limit.
[[nodiscard]] bool catchUpWithManager(std::chrono::milliseconds limit);

} // namespace zul::test
