#include "Lab.h"

#include <doctest/doctest.h>
