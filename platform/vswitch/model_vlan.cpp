#include "model.h"

void serveVlans() {}
void resetVlans() {}
