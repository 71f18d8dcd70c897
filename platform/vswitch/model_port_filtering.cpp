#include "model.h"

void servePortFiltering() {}
void resetPortFiltering() {}
