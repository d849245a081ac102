// Opens closed standard streams: open() always returns the lowest free descriptor, which is the closed one.
// Called first in main() of every program.
#include "platform/foundation/StandardStreams.h"

#include <cerrno>
#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

namespace zul {

void occupyStandardStreams() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(descriptor, F_GETFD) >= 0 || errno != EBADF) continue;
        // With the opposite access mode, so that reading or writing fails as it did before.
        (void)::open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

} // namespace zul
