# Helpers that the tests start as separate processes; the second is the first under a name longer than the kernel keeps.
find_package(SQLite3 REQUIRED)
add_executable(lock_holder update/lock_holder.cpp)
target_link_libraries(lock_holder PRIVATE zul_update)
set(long_named ${CMAKE_CURRENT_BINARY_DIR}/lock_holder_with_a_long_name)
add_custom_command(TARGET lock_holder POST_BUILD
  COMMAND ${CMAKE_COMMAND} -E copy $<TARGET_FILE:lock_holder> ${long_named} BYPRODUCTS ${long_named})
add_executable(history_writer update/history_writer.cpp)
target_link_libraries(history_writer PRIVATE zul_update)
add_dependencies(unit_tests lock_holder history_writer)

target_link_libraries(unit_tests PRIVATE zul_update SQLite::SQLite3)
target_compile_definitions(unit_tests PRIVATE
  ZUL_LOCK_HOLDER="$<TARGET_FILE:lock_holder>" ZUL_LONG_NAMED_HOLDER="${long_named}"
  ZUL_HISTORY_WRITER="$<TARGET_FILE:history_writer>")
target_sources(unit_tests PRIVATE
  update/HistoryTroubleTests.cpp
  update/ImageDoubtTests.cpp
  update/LockAnswerTests.cpp
  update/MonitorTests.cpp
  update/PrinterLocksTests.cpp
  update/RecorderCourseTests.cpp
  update/RecorderTests.cpp
  update/StepTests.cpp
  update/TextsTests.cpp
  update/UpdateHistoryTests.cpp
  update/VerdictTests.cpp
  update/VerdictTextsTests.cpp)
