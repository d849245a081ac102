target_sources(unit_tests PRIVATE
  base/HostTests.cpp
  base/LogTests.cpp
  base/StringAdditionsTests.cpp
  base/USBInterfaceHelpersTests.cpp)
