#include "model.h"

void serveVlanGroups() {}
void resetVlanGroups() {}
