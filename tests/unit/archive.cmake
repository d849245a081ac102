target_sources(unit_tests PRIVATE
  archive/ArchiveProblemTests.cpp
  archive/FirmwareArchiveTests.cpp
  archive/ProductTableTests.cpp
  archive/SRecordTests.cpp)
