// The printer objects of one device: which one leads, and which may be updated.
#include "Classes/DeviceObjects.h"

#include <doctest/doctest.h>

using namespace zul;

namespace {

// A device with two printer interfaces.
struct TwoObjects {
    TwoObjects() {
        devices.add("one", 1);
        devices.add("one", 2);
    }
    DeviceObjects devices;
};

} // namespace

TEST_CASE("the first object of a device leads, and the others do not") {
    DeviceObjects devices;
    CHECK(devices.add("one", 1));
    CHECK_FALSE(devices.add("one", 2));
    CHECK(devices.add("other", 3));
    CHECK(devices.isLeader("one", 1));
    CHECK_FALSE(devices.isLeader("one", 2));
    CHECK(devices.isLeader("other", 3));
    CHECK(devices.isLeader("unknown", 9));
}

TEST_CASE_FIXTURE(TwoObjects,
                  "the leader from before a restart remains the leader until an object from after it exists") {
    devices.remove("one", 1);
    CHECK_FALSE(devices.isLeader("one", 2)); // detached second; the first one saved the right values
    devices.remove("one", 2);
    CHECK(devices.isLeader("one", 1));
    CHECK(devices.add("one", 4));
    CHECK(devices.isLeader("one", 4));
    CHECK_FALSE(devices.isLeader("one", 1));
}

TEST_CASE_FIXTURE(TwoObjects, "any one object of a device may run its update, and leads from then on") {
    CHECK(devices.beginUpdate("one", 2));
    CHECK(devices.isLeader("one", 2));
    CHECK_FALSE(devices.beginUpdate("one", 1));
    CHECK(devices.isUpdatedElsewhere("one", 1));
    CHECK_FALSE(devices.isUpdatedElsewhere("one", 2));
    CHECK(devices.beginUpdate("one", 2)); // again by the same object
    CHECK_FALSE(devices.isUpdatedElsewhere("other", 1));
}

TEST_CASE_FIXTURE(TwoObjects, "an update ends with its report, and with the object that runs it") {
    CHECK(devices.beginUpdate("one", 1));
    devices.endUpdate("one", 2); // the update of another object
    CHECK(devices.isUpdatedElsewhere("one", 2));
    devices.endUpdate("one", 1);
    CHECK_FALSE(devices.isUpdatedElsewhere("one", 2));
    CHECK(devices.beginUpdate("one", 2));
    devices.remove("one", 2);
    CHECK_FALSE(devices.isUpdatedElsewhere("one", 1));
    CHECK(devices.beginUpdate("one", 1));
}
