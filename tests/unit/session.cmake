target_sources(unit_tests PRIVATE
  session/LogsTests.cpp)
target_link_libraries(unit_tests PRIVATE zul_session)
