// The display as its X server knows it. What the toolkit knows of a window's place is a copy, which may stay wrong. GUI
// thread; for Stage.
#pragma once

#include <chrono>

class QWidget;

namespace zul::test {

/// The server shows the whole window, and no part of it is beyond the screen. Asks the server; the window manager may
/// still be at work. window: one without a frame of the window manager, that has been shown.
bool isWholeOnScreen(const QWidget& window);

/// Waits for the window manager to have done what it was asked for until now, and lets the toolkit handle every event
/// that came of it, such as requests to paint. False when that takes longer than limit.
[[nodiscard]] bool catchUpWithManager(std::chrono::milliseconds limit);

} // namespace zul::test
