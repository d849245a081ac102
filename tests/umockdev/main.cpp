// The tests run as an ordinary user, because refused permissions are part of what they test.
#define DOCTEST_CONFIG_IMPLEMENT
#include <doctest/doctest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <grp.h>
#include <unistd.h>

namespace {

constexpr unsigned kNobody = 65534;

bool dropRights() {
    if (::geteuid() != 0) return true;
    return ::setgroups(0, nullptr) == 0 && ::setresgid(kNobody, kNobody, kNobody) == 0 &&
           ::setresuid(kNobody, kNobody, kNobody) == 0;
}

} // namespace

int main(int argc, char** argv) {
    // umockdev's own check returns false as long as there is no testbed.
    const char* preloaded = std::getenv("LD_PRELOAD");
    if (preloaded == nullptr || std::strstr(preloaded, "umockdev-preload") == nullptr) {
        std::fputs("run this through umockdev-wrapper\n", stderr);
        return 1;
    }
    if (!dropRights()) {
        std::perror("cannot become an ordinary user");
        return 1;
    }
    return doctest::Context(argc, argv).run();
}
