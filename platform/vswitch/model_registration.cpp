#include "model.h"

void serveRegistration() {}
void resetRegistration() {}
