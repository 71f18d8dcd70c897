#include "model.h"

void serveAccessLists() {}
void resetAccessLists() {}
