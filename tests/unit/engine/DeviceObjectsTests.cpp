// The printer objects of one device: which leads, and which may be updated.
#include "Classes/DeviceObjects.h"

#include <doctest/doctest.h>

using namespace zul;

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

TEST_CASE("the leader of before a restart stays the leader until an object of after it is there") {
    DeviceObjects devices;
    devices.add("one", 1);
    devices.add("one", 2);
    devices.remove("one", 1);
    CHECK_FALSE(devices.isLeader("one", 2)); // it leaves second, and what the first one saved is right
    devices.remove("one", 2);
    CHECK(devices.isLeader("one", 1));
    CHECK(devices.add("one", 4));
    CHECK(devices.isLeader("one", 4));
    CHECK_FALSE(devices.isLeader("one", 1));
}

TEST_CASE("one object of a device carries its update, whichever it is, and leads from then on") {
    DeviceObjects devices;
    devices.add("one", 1);
    devices.add("one", 2);
    CHECK(devices.beginUpdate("one", 2));
    CHECK(devices.isLeader("one", 2));
    CHECK_FALSE(devices.beginUpdate("one", 1));
    CHECK(devices.isUpdatedElsewhere("one", 1));
    CHECK_FALSE(devices.isUpdatedElsewhere("one", 2));
    CHECK(devices.beginUpdate("one", 2)); // once more, by the same object
    CHECK_FALSE(devices.isUpdatedElsewhere("other", 1));
}

TEST_CASE("an update ends with its report, and with the object that carried it") {
    DeviceObjects devices;
    devices.add("one", 1);
    devices.add("one", 2);
    CHECK(devices.beginUpdate("one", 1));
    devices.endUpdate("one", 2); // not its own
    CHECK(devices.isUpdatedElsewhere("one", 2));
    devices.endUpdate("one", 1);
    CHECK_FALSE(devices.isUpdatedElsewhere("one", 2));
    CHECK(devices.beginUpdate("one", 2));
    devices.remove("one", 2);
    CHECK_FALSE(devices.isUpdatedElsewhere("one", 1));
    CHECK(devices.beginUpdate("one", 1));
}
