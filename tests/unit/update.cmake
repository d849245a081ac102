# The supervision of updates.
target_sources(unit_tests PRIVATE
  update/MonitorTests.cpp
  update/TextsTests.cpp
  update/VerdictTests.cpp)
target_link_libraries(unit_tests PRIVATE zul_update)
