// A file that can be opened only once, like the node of the kernel's printer driver: a terminal in exclusive mode
// returns "busy" to every other open. Uses direct system calls, because umockdev would treat a terminal as a mocked
// device.
#pragma once

#include <doctest/doctest.h>
#include <fcntl.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace zul {

class ExclusiveFile {
  public:
    ExclusiveFile() : _master(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        REQUIRE(_master >= 0);
        REQUIRE(::grantpt(_master) == 0);
        REQUIRE(::unlockpt(_master) == 0);
        _path = ::ptsname(_master);
    }
    ~ExclusiveFile() {
        if (_job >= 0) ::close(_job);
        ::close(_master);
    }
    ExclusiveFile(const ExclusiveFile&) = delete;
    ExclusiveFile& operator=(const ExclusiveFile&) = delete;

    const std::string& path() const { return _path; }
    void beginJob() {
        _job = static_cast<int>(::syscall(SYS_openat, AT_FDCWD, _path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC, 0));
        REQUIRE(_job >= 0);
        REQUIRE(::syscall(SYS_ioctl, _job, TIOCEXCL, 0) == 0);
    }
    void endJob() {
        REQUIRE(::syscall(SYS_ioctl, _job, TIOCNXCL, 0) == 0);
        ::close(_job);
        _job = -1;
    }

  private:
    const int _master;
    int _job = -1;
    std::string _path;
};

} // namespace zul
