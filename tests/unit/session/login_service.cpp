// A login service on a message bus of its own, for cases that run whole programs: it writes the address of its bus, and
// then answers each line of its standard input by one line.
//
//   asked     waits for a question, and answers with all of them, separated by blanks
//   questions how many there were, at once
//   held      yes or no
//   released  waits for the end of the lock that was given last
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
    doctest::Context context; // the lab checks its calls; a failure ends this process
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
