target_sources(unit_tests PRIVATE
  session/AttachedPrintersTests.cpp
  session/DoctorTests.cpp
  session/FailureTextsTests.cpp
  session/LoginLab.cpp
  session/LogsTests.cpp
  session/SessionTests.cpp
  session/SleepInhibitorTests.cpp)
# A private message bus with a login service for the tests.
find_program(ZUL_DBUS_DAEMON dbus-daemon)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)
set_source_files_properties(session/LoginLab.cpp PROPERTIES COMPILE_DEFINITIONS "ZUL_DBUS_DAEMON=\"${ZUL_DBUS_DAEMON}\"")
target_link_libraries(unit_tests PRIVATE zul_session PkgConfig::SYSTEMD)
set_source_files_properties(session/DoctorTests.cpp PROPERTIES COMPILE_DEFINITIONS
  "ZUL_SAMPLE_ARCHIVE=\"${CMAKE_BINARY_DIR}/share/zul-printer-utility/firmware\";ZUL_UDEV_RULE_FILE=\"${PROJECT_SOURCE_DIR}/packaging/70-zul-printer-utility.rules\"")
add_dependencies(unit_tests sample_archive)
add_executable(login_service session/login_service.cpp session/LoginLab.cpp)
target_link_libraries(login_service PRIVATE zul_update doctest::doctest PkgConfig::SYSTEMD)
target_include_directories(login_service PRIVATE ${PROJECT_SOURCE_DIR}/tests)
