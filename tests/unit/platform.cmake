target_sources(unit_tests PRIVATE
  platform/DataTests.cpp
  platform/FileReaderTests.cpp
  platform/FilesTests.cpp
  platform/FoldersTests.cpp
  platform/KeyValueObservingTests.cpp
  platform/LocalTimeTests.cpp
  platform/PrintableTextTests.cpp
  platform/QueueTests.cpp
  platform/ScriptedInterfaceTests.cpp
  platform/ServiceRegistryTests.cpp
  platform/SettingsTests.cpp
  platform/SignalsTests.cpp)
