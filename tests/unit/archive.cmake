target_sources(unit_tests PRIVATE
  archive/ProductTableTests.cpp
  archive/SRecordTests.cpp)
