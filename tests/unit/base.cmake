# target_sources(unit_tests PRIVATE …) of this area
