// The three descriptors that every program is started with. Main thread, before anything is opened.
#pragma once

namespace zul {

/// Takes the place of each standard stream that was closed when the program was started, with one that fails at each
/// use: the next file to be opened, a printer's node for example, would be written to as if it were standard output.
void occupyStandardStreams();

} // namespace zul
