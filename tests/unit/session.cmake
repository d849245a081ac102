target_sources(unit_tests PRIVATE
  session/LoginLab.cpp
  session/LogsTests.cpp
  session/SleepInhibitorTests.cpp)
# A message bus of the tests' own, with a login service on it.
find_program(ZUL_DBUS_DAEMON dbus-daemon)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)
target_compile_definitions(unit_tests PRIVATE ZUL_DBUS_DAEMON="${ZUL_DBUS_DAEMON}")
target_link_libraries(unit_tests PRIVATE zul_session PkgConfig::SYSTEMD)
