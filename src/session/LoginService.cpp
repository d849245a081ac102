// Calls of the login service over the system's message bus, on private threads of the sleep inhibitor and of the
// diagnosis. The library's blocking call is not used, because it waits without a limit while it connects.
#include "session/LoginService.h"

#include "platform/files/ScopedFd.h"
#include "platform/foundation/LocalizedFormat.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <string>
#include <systemd/sd-bus.h>
#include <utility>

namespace zul {

namespace {

using std::chrono::steady_clock;

constexpr const char* kService = "org.freedesktop.login1";
constexpr const char* kPath = "/org/freedesktop/login1";

struct BusClose {
    // Without a flush, which would wait for a bus that does not reply.
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
struct MessageRelease {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Bus = std::unique_ptr<sd_bus, BusClose>;
using Message = std::unique_ptr<sd_bus_message, MessageRelease>;

struct Answer {
    bool isThere = false;
    ScopedFd descriptor{};
    std::string errorName{}; // empty: the call succeeded
    std::string errorText{};
};

std::string textOfError(int code) {
    return std::strerror(-code);
}

int keepAnswer(sd_bus_message* message, void* context, sd_bus_error* /*error*/) {
    auto& answer = *static_cast<Answer*>(context);
    answer.isThere = true;
    if (const sd_bus_error* const error = sd_bus_message_get_error(message)) {
        answer.errorName = error->name;
        answer.errorText = error->message != nullptr ? error->message : error->name;
        return 0;
    }
    int descriptor = -1; // owned by the message
    if (sd_bus_message_has_signature(message, "h") > 0 && sd_bus_message_read(message, "h", &descriptor) > 0) {
        // Its own copy, above the standard streams and closed in child processes: an inherited one would keep the lock.
        answer.descriptor = ScopedFd(::fcntl(descriptor, F_DUPFD_CLOEXEC, 3));
    }
    return 0;
}

int openBus(const std::string& address, Bus& bus) {
    sd_bus* made = nullptr;
    if (address.empty()) {
        const int code = sd_bus_open_system(&made);
        bus.reset(made);
        return code;
    }
    if (const int code = sd_bus_new(&made); code < 0) return code;
    bus.reset(made);
    if (const int code = sd_bus_set_address(made, address.c_str()); code < 0) return code;
    if (const int code = sd_bus_set_bus_client(made, 1); code < 0) return code;
    return sd_bus_start(made);
}

// Processes the connection until the reply has arrived or the deadline has passed. Returns a code of the library.
int waitForAnswer(sd_bus* bus, const Answer& answer, steady_clock::time_point deadline) {
    while (!answer.isThere) {
        // Without a limit of its own: it returns 0 when it would have to wait.
        if (const int code = sd_bus_process(bus, nullptr); code != 0) {
            if (code < 0) return code;
            continue;
        }
        const auto left = std::chrono::ceil<std::chrono::microseconds>(deadline - steady_clock::now()).count();
        if (left <= 0) return -ETIMEDOUT;
        if (const int code = sd_bus_wait(bus, static_cast<std::uint64_t>(left)); code < 0 && code != -EINTR)
            return code;
    }
    return 0;
}

bool isRefusal(const std::string& errorName) {
    return errorName == SD_BUS_ERROR_ACCESS_DENIED || errorName == SD_BUS_ERROR_INTERACTIVE_AUTHORIZATION_REQUIRED;
}

std::string problemOfAnswer(const Answer& answer) {
    if (answer.errorName.empty()) return {};
    if (isRefusal(answer.errorName)) {
        return localizedFormat("the login service of the system refused it (%s)", answer.errorText);
    }
    return localizedFormat("the system has no login service that answers (%s)", answer.errorText);
}

// One connection and its calls, within one time limit.
class Conversation {
  public:
    explicit Conversation(const LoginServiceOptions& options)
        : _deadline(steady_clock::now() + options.longestWait), _code(openBus(options.busAddress, _bus)) {}

    /// Fills the call's arguments. Returns a code of the library.
    using Arguments = std::function<int(sd_bus_message* call)>;
    Answer ask(const char* interface, const char* method, const Arguments& arguments) {
        Answer answer;
        if (_code >= 0) _code = send(interface, method, arguments, answer);
        if (_code >= 0) _code = waitForAnswer(_bus.get(), answer, _deadline);
        _pending.reset();
        return answer;
    }
    /// Why there was no reply; empty if there was one.
    std::string problem() const {
        if (_code >= 0) return {};
        if (_code == -ETIMEDOUT) return localizedFormat("the message bus of the system does not answer");
        return localizedFormat("the message bus of the system cannot be used (%s)", textOfError(_code));
    }

  private:
    struct SlotRelease {
        void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
    };

    int send(const char* interface, const char* method, const Arguments& arguments, Answer& answer) {
        sd_bus_message* made = nullptr;
        if (const int code = sd_bus_message_new_method_call(_bus.get(), &made, kService, kPath, interface, method);
            code < 0) {
            return code;
        }
        const Message call(made);
        if (const int code = arguments(call.get()); code < 0) return code;
        sd_bus_slot* slot = nullptr;
        const int code = sd_bus_call_async(_bus.get(), &slot, call.get(), keepAnswer, &answer, UINT64_MAX);
        _pending.reset(slot); // releasing the slot cancels the call, whose Answer is a local of ask()
        return code;
    }

    const steady_clock::time_point _deadline;
    Bus _bus;
    std::unique_ptr<sd_bus_slot, SlotRelease> _pending;
    int _code;
};

} // namespace

LoginLock takeLoginLock(const LoginServiceOptions& options, const std::string& why) {
    Conversation conversation(options);
    LoginLock result;
    // The lid switch needs a separate right; without it the whole request is refused.
    for (const char* what : {"sleep:shutdown:handle-lid-switch", "sleep:shutdown"}) {
        Answer answer = conversation.ask("org.freedesktop.login1.Manager", "Inhibit", [&](sd_bus_message* call) {
            return sd_bus_message_append(call, "ssss", what, "ZUL Printer Utility", why.c_str(), "block");
        });
        result.lock = std::move(answer.descriptor);
        result.problem = conversation.problem();
        if (result.problem.empty()) result.problem = problemOfAnswer(answer);
        // Only a refusal is tried again with less; a service that is missing is missing for both.
        if (result.lock || !isRefusal(answer.errorName)) break;
    }
    if (!result.lock && result.problem.empty()) {
        result.problem = localizedFormat("the login service of the system did not grant the lock");
    }
    return result;
}

std::string loginServiceProblem(const LoginServiceOptions& options) {
    Conversation conversation(options);
    // Every service answers this without a permission, and it starts a service that is not running.
    const Answer answer = conversation.ask("org.freedesktop.DBus.Peer", "Ping", [](sd_bus_message*) { return 0; });
    const std::string problem = conversation.problem();
    return problem.empty() ? problemOfAnswer(answer) : problem;
}

} // namespace zul
