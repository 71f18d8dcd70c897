#include "model.h"

void serveFilters() {}
void resetFilters() {}
