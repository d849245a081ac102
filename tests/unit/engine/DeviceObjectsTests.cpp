// The printer objects of one device: which one leads, and which may be updated.
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

TEST_CASE_FIXTURE(Afresh, "the leader from before a restart remains the leader until an object from after it exists") {
    DeviceObjects::add("one", 1);
    DeviceObjects::add("one", 2);
    DeviceObjects::remove("one", 1);
    CHECK_FALSE(DeviceObjects::isLeader("one", 2)); // detached second; the first one saved the right values
    DeviceObjects::remove("one", 2);
    CHECK(DeviceObjects::isLeader("one", 1));
    CHECK(DeviceObjects::add("one", 4));
    CHECK(DeviceObjects::isLeader("one", 4));
    CHECK_FALSE(DeviceObjects::isLeader("one", 1));
}

TEST_CASE_FIXTURE(Afresh, "any one object of a device may run its update, and leads from then on") {
    DeviceObjects::add("one", 1);
    DeviceObjects::add("one", 2);
    CHECK(DeviceObjects::beginUpdate("one", 2));
    CHECK(DeviceObjects::isLeader("one", 2));
    CHECK_FALSE(DeviceObjects::beginUpdate("one", 1));
    CHECK(DeviceObjects::isUpdatedElsewhere("one", 1));
    CHECK_FALSE(DeviceObjects::isUpdatedElsewhere("one", 2));
    CHECK(DeviceObjects::beginUpdate("one", 2)); // again by the same object
    CHECK_FALSE(DeviceObjects::isUpdatedElsewhere("other", 1));
}

TEST_CASE_FIXTURE(Afresh, "an update ends with its report, and with the object that runs it") {
    DeviceObjects::add("one", 1);
    DeviceObjects::add("one", 2);
    CHECK(DeviceObjects::beginUpdate("one", 1));
    DeviceObjects::endUpdate("one", 2); // the update of another object
    CHECK(DeviceObjects::isUpdatedElsewhere("one", 2));
    DeviceObjects::endUpdate("one", 1);
    CHECK_FALSE(DeviceObjects::isUpdatedElsewhere("one", 2));
    CHECK(DeviceObjects::beginUpdate("one", 2));
    DeviceObjects::remove("one", 2);
    CHECK_FALSE(DeviceObjects::isUpdatedElsewhere("one", 1));
    CHECK(DeviceObjects::beginUpdate("one", 1));
}
