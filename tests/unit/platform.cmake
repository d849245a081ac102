target_sources(unit_tests PRIVATE
  platform/DataTests.cpp
  platform/KeyValueObservingTests.cpp
  platform/PrintableTextTests.cpp
  platform/QueueTests.cpp
  platform/ScriptedInterfaceTests.cpp
  platform/ServiceRegistryTests.cpp
  platform/SettingsTests.cpp
  platform/StateFolderTests.cpp)
