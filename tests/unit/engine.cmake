target_sources(unit_tests PRIVATE
  engine/AlertTests.cpp
  engine/ArchiveTests.cpp
  engine/CommandTests.cpp
  engine/ControllerTests.cpp
  engine/IdentityTests.cpp
  engine/InterfaceTests.cpp
  engine/LifeCycleTests.cpp
  engine/QueryTests.cpp
  engine/StatusTests.cpp)
