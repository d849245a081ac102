// The three standard descriptors of a process. Main thread, before any file is opened.
#pragma once

namespace zul {

/// Opens each standard stream that was closed at program start, so that each use of it fails. Otherwise the next opened
/// file, a printer's node for example, would get its number and receive standard output.
void occupyStandardStreams();

} // namespace zul
