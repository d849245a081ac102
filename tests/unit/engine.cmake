target_sources(unit_tests PRIVATE
  engine/AlertTests.cpp
  engine/ArchiveTests.cpp
  engine/CommandTests.cpp
  engine/ControllerTests.cpp
  engine/DeviceObjectsTests.cpp
  engine/EnvironmentTests.cpp
  engine/ExchangeTests.cpp
  engine/HolderTests.cpp
  engine/IdentityTests.cpp
  engine/InterfaceTests.cpp
  engine/LifeCycleTests.cpp
  engine/NoQueueTests.cpp
  engine/QueryTests.cpp
  engine/ReplyShapeTests.cpp
  engine/StatusCodeNamesTests.cpp
  engine/StatusTests.cpp
  engine/TableFileNameTests.cpp)
