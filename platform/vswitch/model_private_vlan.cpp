#include "model.h"

void servePrivateVlans() {}
void resetPrivateVlans() {}
