// A login service on a message bus of its own, for tests of whole programs. It prints the address of its bus, then
// replies to each line of its standard input with one line.
//
// asked     waits for a request, and prints all of them, separated by blanks
// questions prints how many there were, at once
//   held      yes or no
// released  waits for the release of the last lock
#define DOCTEST_CONFIG_IMPLEMENT
#include "unit/session/LoginLab.h"

#include <doctest/doctest.h>
#include <fmt/ranges.h>
#include <iostream>

using namespace zul::test;

namespace {

std::string answerTo(const std::string& word, FakeLoginService& service) {
    if (word == "asked") {
        service.waitUntilAsked();
        return fmt::format("{}", fmt::join(service.asked(), " "));
    }
    if (word == "questions") return std::to_string(service.asked().size());
    if (word == "held") return service.isHeld() ? "yes" : "no";
    if (word != "released") return "unknown";
    service.waitUntilReleased();
    return "released";
}

} // namespace

int main() {
    doctest::Context context; // checks the lab's calls; a failure ends this process
    context.setAsDefaultForAssertsOutOfTestCases();
    context.setAssertHandler([](const doctest::AssertData& failed) {
        if (!failed.m_failed) return;
        std::cerr << failed.m_expr << '\n';
        std::abort();
    });
    const PrivateBus bus;
    FakeLoginService service(bus.address());
    std::cout << bus.address() << std::endl;
    for (std::string word; std::getline(std::cin, word);) std::cout << answerTo(word, service) << std::endl;
    return 0;
}
