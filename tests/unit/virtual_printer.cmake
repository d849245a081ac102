target_sources(unit_tests PRIVATE
  virtual_printer/BusTests.cpp
  virtual_printer/ClaimTests.cpp
  virtual_printer/FaultTests.cpp
  virtual_printer/FlashTests.cpp
  virtual_printer/JournalTests.cpp
  virtual_printer/PrinterTests.cpp
  virtual_printer/SampleArchiveTests.cpp
  virtual_printer/SettingsTests.cpp
  virtual_printer/TransferTests.cpp)
target_link_libraries(unit_tests PRIVATE zul_virtual_printer zul_sample_files)
