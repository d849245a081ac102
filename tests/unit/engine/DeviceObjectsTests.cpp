// The printer objects of one device: which leads, and which may be updated.
#include "Classes/DeviceObjects.h"

#include <doctest/doctest.h>

using namespace zul;

namespace {

struct Afresh {
    Afresh() { DeviceObjects::forget(); }
    ~Afresh() { DeviceObjects::forget(); }
};

} // namespace

TEST_CASE_FIXTURE(Afresh, "the first object of a device leads, and the others do not") {
    CHECK(DeviceObjects::add("one", 1));
    CHECK_FALSE(DeviceObjects::add("one", 2));
    CHECK(DeviceObjects::add("other", 3));
    CHECK(DeviceObjects::isLeader("one", 1));
    CHECK_FALSE(DeviceObjects::isLeader("one", 2));
    CHECK(DeviceObjects::isLeader("other", 3));
    CHECK(DeviceObjects::isLeader("unknown", 9));
}

TEST_CASE_FIXTURE(Afresh, "the leader of before a restart stays the leader until an object of after it is there") {
    DeviceObjects::add("one", 1);
    DeviceObjects::add("one", 2);
    DeviceObjects::remove("one", 1);
    CHECK_FALSE(DeviceObjects::isLeader("one", 2)); // it leaves second, and what the first one saved is right
    DeviceObjects::remove("one", 2);
    CHECK(DeviceObjects::isLeader("one", 1));
    CHECK(DeviceObjects::add("one", 4));
    CHECK(DeviceObjects::isLeader("one", 4));
    CHECK_FALSE(DeviceObjects::isLeader("one", 1));
}

TEST_CASE_FIXTURE(Afresh, "one object of a device carries its update, whichever it is, and leads from then on") {
    DeviceObjects::add("one", 1);
    DeviceObjects::add("one", 2);
    CHECK(DeviceObjects::beginUpdate("one", 2));
    CHECK(DeviceObjects::isLeader("one", 2));
    CHECK_FALSE(DeviceObjects::beginUpdate("one", 1));
    CHECK(DeviceObjects::isUpdatedElsewhere("one", 1));
    CHECK_FALSE(DeviceObjects::isUpdatedElsewhere("one", 2));
    CHECK(DeviceObjects::beginUpdate("one", 2)); // once more, by the same object
    CHECK_FALSE(DeviceObjects::isUpdatedElsewhere("other", 1));
}

TEST_CASE_FIXTURE(Afresh, "an update ends with its report, and with the object that carried it") {
    DeviceObjects::add("one", 1);
    DeviceObjects::add("one", 2);
    CHECK(DeviceObjects::beginUpdate("one", 1));
    DeviceObjects::endUpdate("one", 2); // not its own
    CHECK(DeviceObjects::isUpdatedElsewhere("one", 2));
    DeviceObjects::endUpdate("one", 1);
    CHECK_FALSE(DeviceObjects::isUpdatedElsewhere("one", 2));
    CHECK(DeviceObjects::beginUpdate("one", 2));
    DeviceObjects::remove("one", 2);
    CHECK_FALSE(DeviceObjects::isUpdatedElsewhere("one", 1));
    CHECK(DeviceObjects::beginUpdate("one", 1));
}
