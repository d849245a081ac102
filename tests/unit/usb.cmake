# The parts of the real bus that need neither a device nor rights.
target_link_libraries(unit_tests PRIVATE zul_usb_libusb)
target_sources(unit_tests PRIVATE
  usb/DeviceIdentityTests.cpp
  usb/NodeWatcherTests.cpp
  usb/ProcessSearchTests.cpp
  usb/SystemLookupTests.cpp)
