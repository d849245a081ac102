// Reservations of other processes, controlled by the test.
#pragma once

#include "platform/usb/PrinterReservations.h"

#include <map>
#include <mutex>
#include <vector>

namespace zul {

class FakeReservations final : public PrinterReservations {
  public:
    void reserve(const std::string& key, const std::string& deviceID = {}) {
        const std::scoped_lock lock(_mutex);
        InterfaceHolder reserved = holder();
        reserved.deviceID = deviceID;
        _held.insert_or_assign(key, reserved);
    }
    void release(const std::string& key) {
        std::vector<std::function<void()>> released;
        {
            const std::scoped_lock lock(_mutex);
            _held.erase(key);
            for (const auto& watch : _watches) {
                const auto alive = watch.lock();
                if (alive != nullptr && alive->key == key) released.push_back(alive->released);
            }
        }
        for (const auto& report : released) report();
    }
    static InterfaceHolder holder() {
        InterfaceHolder holder;
        holder.kind = InterfaceHolder::Kind::ownProgram;
        holder.program = "zulctl";
        holder.pid = 4711;
        holder.activity = "update";
        return holder;
    }

    std::optional<InterfaceHolder> heldElsewhere(const std::string& deviceKey) override {
        const std::scoped_lock lock(_mutex);
        const auto found = _held.find(deviceKey);
        return found == _held.end() ? std::nullopt : std::optional(found->second);
    }
    [[nodiscard]] std::shared_ptr<void> watch(const std::string& deviceKey, std::function<void()> released) override {
        auto watch = std::make_shared<Watch>(Watch{deviceKey, std::move(released)});
        const std::scoped_lock lock(_mutex);
        _watches.push_back(watch);
        return watch;
    }

  private:
    struct Watch {
        std::string key;
        std::function<void()> released;
    };
    std::mutex _mutex;
    std::map<std::string, InterfaceHolder> _held;
    std::vector<std::weak_ptr<Watch>> _watches;
};

} // namespace zul
