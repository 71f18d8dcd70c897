#include "tests/support/driver.h"
